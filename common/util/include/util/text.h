// Small work on terminated texts.

#pragma once

/// Cuts white space, as isspace() has it, off the end of `text`, in place.
void trimTrailingSpace(char* text);
