#pragma once
// The module's UI texts: key and default (English) text, in the order they are
// registered with the host. Texts are Windows-1252 bytes as written.

struct TextTableRow {
    const char* key;
    const char* text;
};

extern const TextTableRow kTextTable[];
extern const int kTextTableSize;
