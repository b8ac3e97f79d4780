#compdef quillmere-desktop-simulator
_arguments \
  '--socket[listen at another path]:socket:_files' \
  '--quiet[do not log calls]' \
  '--screen[set the size of the phones]:size:(540x1200 1080x2400)' \
  '--screenshot[write the first screen as a PNG]:file:_files' \
  '--delay[delay each response]:milliseconds:' \
  '--drop-after[close each connection after this many bytes]:bytes:' \
  '*--fail[answer a command with a failure]:command:' \
  '--truncate[end each response in the middle]' \
  '--silence[never answer]' \
  '(- *)'{-h,--help}'[print usage]'
