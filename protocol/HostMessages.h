#pragma once
// Message codes exchanged with the host through the host callback and
// ReceiveMessage. Grouped by purpose; docs/HOST-PROTOCOL.md gives each code's
// parameters and records.

namespace HostMsg {

enum Code : unsigned int {
    // Registration and lookup of host objects
    RegisterModule = 3000,   // module -> host: coreInterfaceRecord
    FindInterface = 3001,    // module -> host: coreInterfaceRecord
    HostReady = 3004,        // host -> module
    CommandLine = 3007,      // host -> module: argc, argv
    RegisterTranslation = 3019,  // module -> host: coreTranslate
    ChangeGlobalParameters = 3115,  // host -> module: coreChangeGlobalParameters*

    // Named events
    SubscribeEvent = 3110,    // module -> host: coreEventSubscribe
    UnsubscribeEvents = 3111, // module -> host: coreEventUnsubscribe
    CreateEvent = 3112,       // module -> host: coreEventCreate
    RaiseEvent = 3113,        // module -> host: handle, VMEvent*

    // Languages, folders, log and time formatting
    LanguageCount = 3116,     // module -> host: int*
    LanguageList = 3117,      // module -> host: coreLanguage[]
    FolderByType = 3128,      // module -> host: coreFolder
    GetLogSink = 3205,        // module -> host: LogSink*
    GetDateFormatters = 3207, // module -> host: coreDateTimeFormatters*

    // Installed configurations and their module tables (update workflow);
    // records in protocol/UpdateRecords.h
    ConfigurationCount = 3086,  // module -> host: int32_t* (the host writes the count)
    ConfigurationList = 3087,   // module -> host: coreConfigListRequest (fills coreNameConfig[])
    ModuleTable = 3088,         // module -> host: coreModuleTableRequest (fills coreModuleEntry[])
    PathToConfigFile = 3209,    // module -> host: corePathToConfig; 1 = no such configuration

    // Parameter files held by the host: a file loaded into a tree of named
    // nodes with text parameters; records in protocol/StorageRecords.h
    LoadParameterFile = 3163,  // module -> host: coreXmlLoad (the host writes the file handle)
    SaveParameterFile = 3164,  // module -> host: file handle; writes the file, releases the handle
    ClearNode = 3165,          // module -> host: coreXmlNodeId
    OpenNode = 3166,           // module -> host: coreXmlOpenNode (the host writes the child)
    ReadNodeItems = 3167,      // module -> host: coreXmlNodeId, coreSzNode (the host fills it)
    WriteNodeItems = 3168,     // module -> host: coreXmlNodeId, coreSzNode or null (no items)
    NodeItemLengths = 3169,    // module -> host: coreXmlNodeId, coreSzLengths (the host fills it)
    NodeItemCount = 3170,      // module -> host: coreXmlNodeId, int32_t* (the host writes it)

    // The update dialog
    OpenDialog = 3066,          // host -> module: build the dialog object (window on demand)
    CloseDialog = 3081,         // host -> module: keep the options, clear the download folder
    QueryConnectState = 3530,   // module -> host: mwiSetStateConnect* (the host fills it)
    SetConnectState = 3529,     // host -> module: mwiSetStateConnect*
    AddMenuItem = 3075,         // module -> host: coreMenuItem (the host writes the id)
    UpdateMenu = 3003,          // module -> host: no record; redraw the menus
    ReleaseInterface = 3002,    // module -> host: coreInterfaceRecord of an earlier 3001
    MenuCommand = 5511,         // host -> module: mm_menu_item*
    QueryModuleVersion = 3089,  // module -> host: coreModuleQuery; -1 = unknown module
    ConfigFileArrived = 3090,   // module -> host: coreConfigFileArrived (installation)
    ModuleUpdated = 3091,       // module -> host: coreModuleUpdated (installation)

    // Main window services
    MainWindowId = 3502,      // module -> main window: intptr_t*
    WorkFolder = 3503,        // module -> main window: char16_t[6144]
    ProxySettings = 3516,     // module -> main window: mwiProxyState
    TestProxy = 3517,         // host -> module: mwiTesProxy* (the module fills one result)
};

}  // namespace HostMsg
