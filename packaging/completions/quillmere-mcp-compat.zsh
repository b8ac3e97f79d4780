#compdef quillmere-mcp-compat
_arguments \
  '--doctor[print whether the desktop app is found and answers]' \
  '(- *)'{-h,--help}'[print usage]'
