// Small work on NUL-terminated strings.

#pragma once

/// Removes whitespace, as isspace() defines it, from the end of `string`, in place.
void trimTrailingSpace(char* string);
