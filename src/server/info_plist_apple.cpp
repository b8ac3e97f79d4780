// The sandbox wants to know a program by an identifier before it has run a line. A bare executable
// has that in a section of its own, filled here and not by an option of the linker, since not every
// linker for macOS knows that option.
__asm__(
    ".section __TEXT,__info_plist,regular,no_dead_strip\n"
    "_quillmere_info_plist:\n"
    ".incbin \"" QUILLMERE_INFO_PLIST "\"\n");
