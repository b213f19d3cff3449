// Prints on a device what one of its reference files holds, by the program's own reader.

#include "ubi_tools/ref_checksums.h"

#include <cstdio>

int main(int argc, char** argv) {
    if (argc != 3) {
        fputs(
            "usage: ref-file FILE NAME    a line \"NAME VOLUME MD5\" for each entry, or \"NAME unreadable\"\n",
            stderr);
        return 2;
    }
    RefChecksumList list;
    if (readRefFile(&list, argv[1]) != 0) {
        printf("%s unreadable\n", argv[2]);
        return 0;
    }
    printf("%s readable\n", argv[2]);
    for (const auto& entry : list)
        printf("%s %s %s\n", argv[2], entry.first.c_str(), entry.second.c_str());
    return 0;
}
