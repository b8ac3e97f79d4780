complete -W "--doctor --help -h" quillmere-mcp-server
