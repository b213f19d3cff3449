#include "util/text.h"

#include <cctype>
#include <cstring>

void trimTrailingSpace(char* string) {
    char* end = string + strlen(string);
    while (end != string && isspace(static_cast<unsigned char>(end[-1])) != 0) {
        --end;
        *end = '\0';
    }
}
