#pragma once
// Records of the host-held parameter files (codes 3163-3170) and the host's
// 16-bit string record.
//
// The host loads a parameter file into a tree of named nodes with named text
// parameters and hands out a handle for it; nodes are addressed by the file
// handle and a node handle (0 is the file's top level). Names travel as 8-bit
// local-encoding text, values as 16-bit text.
//
// Packed and little-endian like every host record. This header is compiled
// with -m32 by the test suite: no Qt, nothing a bare i386 compiler lacks.
#include <cstdint>

#include "protocol/RecordLayout.h"

#pragma pack(push, 1)

// Load request (3163): the file's full path, and the slot in which the host
// returns the handle of the loaded tree (null when the file cannot be loaded).
struct coreXmlLoad {
    char16_t path[255];  // NUL-terminated; longer paths are cut to 254 units
    void* data;
};

// A node: the file handle and the node handle (3165, 3167-3170).
struct coreXmlNodeId {
    void* data;
    int32_t node;
};

// Opening or creating a child (3166). The host writes the child's handle into
// child, 0 when there is none.
struct coreXmlOpenNode {
    void* data;
    int32_t node;
    char name[255];  // copied with a bound of 255 bytes
    int32_t mode;    // coreXmlOpenMode
    int32_t child;
};

// One parameter or child of a node, the unit of 3167 and 3168.
struct coreSzItem {
    char name[255];  // key or child name, NUL-terminated
    union {
        char16_t text[255];  // inline value, used when inlineValue is non-zero
        char16_t* pointer;   // otherwise a separately allocated array
    } value;
    int32_t length;       // value units including the NUL (255 when inline)
    int32_t inlineValue;  // non-zero: value.text holds the value
    int32_t kind;         // coreSzItemKind
    int32_t node;         // a parameter: its node's handle; a child: the child's handle
};

// A node's items (3167 fills them, 3168 sends them).
struct coreSzNode {
    int32_t count;
    coreSzItem* items;
};

// The value lengths of a node's items (3169), one int per item.
struct coreSzLengths {
    int32_t count;
    int32_t* lengths;
};

// The host's string record; the module uses only its 16-bit text.
struct coreUncStringType {
    int32_t length;  // units, without the NUL
    char16_t* text;  // NUL-terminated
};

#pragma pack(pop)

enum coreXmlOpenMode : int32_t {
    coreXmlOpenExisting = 0,  // the first child of that name, created when missing
    coreXmlOpenAppend = 1,    // always a new child, appended
};

enum coreSzItemKind : int32_t {
    coreSzParameter = 0,
    coreSzChild = 1,
};

// Units an inline value holds, NUL included.
constexpr int32_t kCoreSzInlineUnits = 255;
// The largest item count whose records still fit a 32-bit byte count.
constexpr int32_t kCoreSzMaxItems = 5499317;

DM_ASSERT_SIZE(coreXmlLoad, 514, 518);
DM_ASSERT_OFFSET(coreXmlLoad, data, 510, 510);

DM_ASSERT_SIZE(coreXmlNodeId, 8, 12);
DM_ASSERT_OFFSET(coreXmlNodeId, node, 4, 8);

DM_ASSERT_SIZE(coreXmlOpenNode, 271, 275);
DM_ASSERT_OFFSET(coreXmlOpenNode, node, 4, 8);
DM_ASSERT_OFFSET(coreXmlOpenNode, name, 8, 12);
DM_ASSERT_OFFSET(coreXmlOpenNode, mode, 263, 267);
DM_ASSERT_OFFSET(coreXmlOpenNode, child, 267, 271);

DM_ASSERT_SIZE(coreSzItem, 781, 781);
DM_ASSERT_OFFSET(coreSzItem, value, 255, 255);
DM_ASSERT_OFFSET(coreSzItem, length, 765, 765);
DM_ASSERT_OFFSET(coreSzItem, inlineValue, 769, 769);
DM_ASSERT_OFFSET(coreSzItem, kind, 773, 773);
DM_ASSERT_OFFSET(coreSzItem, node, 777, 777);

DM_ASSERT_SIZE(coreSzNode, 8, 12);
DM_ASSERT_OFFSET(coreSzNode, items, 4, 4);

DM_ASSERT_SIZE(coreSzLengths, 8, 12);
DM_ASSERT_OFFSET(coreSzLengths, lengths, 4, 4);

DM_ASSERT_SIZE(coreUncStringType, 8, 12);
DM_ASSERT_OFFSET(coreUncStringType, text, 4, 4);
