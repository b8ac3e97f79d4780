#compdef quillmere-mcp-server
_arguments \
  '--doctor[print whether the desktop app is found and answers]' \
  '(- *)'{-h,--help}'[print usage]'
