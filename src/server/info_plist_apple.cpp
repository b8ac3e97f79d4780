// The sandbox identifies a program before it runs. A bare executable holds its identifier in a
// section of its own. We fill the section here and not with a linker option, since not every linker
// for macOS has that option.
__asm__(
    ".section __TEXT,__info_plist,regular,no_dead_strip\n"
    "_quillmere_info_plist:\n"
    ".incbin \"" QUILLMERE_INFO_PLIST "\"\n");
