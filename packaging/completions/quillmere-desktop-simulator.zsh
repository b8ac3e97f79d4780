#compdef quillmere-desktop-simulator
_arguments \
  '--socket[listen at another path]:socket:_files' \
  '--quiet[write no line for each call]' \
  '--screenshot[write the first screen as a PNG]:file:_files' \
  '--delay[hold each answer back]:milliseconds:' \
  '--drop-after[close each connection after so many bytes]:bytes:' \
  '*--fail[answer a command with a failure]:command:' \
  '--truncate[end each answer in the middle]' \
  '--silence[never answer]' \
  '(- *)'{-h,--help}'[print usage]'
