complete -W "--doctor --help -h" quillmere-mcp-compat
