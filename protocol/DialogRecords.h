#pragma once
// Records of the host messages that the update dialog sends or receives:
// its menu entry (3075, 5511), the connection state (3530), the question
// about one installed module asked when a run is recorded (3089), and what
// installation tells the host (3090, 3091).
// Compiled with -m32 by the tests: no Qt here.
#include <cstdint>

#include "protocol/RecordLayout.h"

#pragma pack(push, 1)

// Asks the host for a menu entry (3075); the host writes the entry's id.
struct coreMenuItem {
    char menuName[255];  // the host menu to put the entry in; empty: the host's choice
    char text[255];      // the entry's text, already translated
    int32_t id;          // written by the host; 0 when it gave none
    void* module;        // the module object, so the host knows whom to tell
};

// A menu command (5511), sent to the module that registered the entry.
struct mm_menu_item {
    int32_t id;
    char text[255];
};

// The installed version of one module (3089): the host answers 0 and fills
// the version when it knows the module, -1 when it does not.
struct coreModuleQuery {
    char name[255];
    int32_t major;
    int32_t minor;
    int32_t build;
};

#pragma pack(pop)

DM_ASSERT_SIZE(coreMenuItem, 518, 522);
DM_ASSERT_OFFSET(coreMenuItem, text, 255, 255);
DM_ASSERT_OFFSET(coreMenuItem, id, 510, 510);
DM_ASSERT_OFFSET(coreMenuItem, module, 514, 514);

DM_ASSERT_SIZE(mm_menu_item, 259, 259);
DM_ASSERT_OFFSET(mm_menu_item, text, 4, 4);

DM_ASSERT_SIZE(coreModuleQuery, 267, 267);
DM_ASSERT_OFFSET(coreModuleQuery, major, 255, 255);
DM_ASSERT_OFFSET(coreModuleQuery, build, 263, 263);

#pragma pack(push, 1)

// A configuration file that arrived with an update (3090): the host takes it
// over before the module deletes it.
struct coreConfigFileArrived {
    char path[255];
};

// A module file the host should know in its new version (3091).
struct coreModuleUpdated {
    char fileName[255];  // the installed file's name, as the module's local path ends
    int32_t major;
    int32_t minor;
    int32_t build;
};

#pragma pack(pop)

DM_ASSERT_SIZE(coreConfigFileArrived, 255, 255);
DM_ASSERT_SIZE(coreModuleUpdated, 267, 267);
DM_ASSERT_OFFSET(coreModuleUpdated, major, 255, 255);
DM_ASSERT_OFFSET(coreModuleUpdated, build, 263, 263);
