// Small work on terminated texts.

#include "util/text.h"

#include <cctype>
#include <cstring>

void trimTrailingSpace(char* text) {
    char* end = text + strlen(text);
    while (end != text && isspace(static_cast<unsigned char>(end[-1])) != 0) {
        --end;
        *end = '\0';
    }
}
