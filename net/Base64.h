#pragma once
// Standard base64 (RFC 4648, section 4 alphabet, '=' padding). Used for the
// proxy credentials and for the backup folder handed to the updater.
//
// Both routines allocate the result with malloc, terminate it with a NUL and
// return its length; the caller frees it. On failure *out is null and the
// result is -1.

int base64_encode(void const* data, unsigned int length, char** out);
// Decoding stops at the first '=' and skips ASCII white space; any other
// character outside the alphabet makes the input invalid.
int base64_decode(char const* text, unsigned int length, char** out);
