#pragma once
// The download state kept between runs in "download.rdd": the automatic
// update switches and the modules of the last download with the stage each
// reached. The host holds the file; every call loads it (3163), reads or
// edits its tree and hands it back to be saved (3164), so nothing is cached
// between calls and each call writes the file back once, reads included.
//
// The tree, below the root node "ParametersDL":
//   "ParamAutoDL":  "AutoDownload", "ShowWindow" (bool), "DelayAutoStart" (int,
//                   set by hand only)
//   "LastDownload": "LastDownloadCount" (int) and one "Module" child per
//                   module, with the twelve parameters of writeModuleNode(),
//                   and "Sha256" and "SizeKb" when its list gave a hash (absent
//                   otherwise, so files without hashes read as before).
//
// Without a host callback nothing is loaded: getters leave their outputs
// unchanged and count 0 (getCountLastDownloadModule: -1). Called on the GUI
// thread.
#include <functional>
#include <optional>
#include <vector>

#include <QString>

#include "platform/HostLink.h"
#include "update/DlModule.h"
#include "update/FileHashes.h"

class CXMLWorkData;

class CSaveParamDownload {
public:
    // folder is where "download.rdd" lives; it is created when missing. The
    // host is the module object's, looked up at every call, so an object made
    // before the host called Initialize works once it has.
    explicit CSaveParamDownload(QString folder);
    CSaveParamDownload(QString folder, const CHostLink& link);

    // The loaded file's root node, owned by the caller; null when the host
    // cannot load the file even after the damaged file was deleted.
    CXMLWorkData* getDefaultXml();
    // Hands the file back to the host to be saved and deletes xml.
    void saveDefaultXml(CXMLWorkData* xml);

    // Replaces the whole "ParamAutoDL" node, so a "DelayAutoStart" put there
    // by hand is dropped.
    void saveStartParam(bool autoDownload, bool showWindow);
    // Outputs keep the caller's values for whatever the file lacks.
    void getStartParam(bool& autoDownload, bool& showWindow);
    // delay is changed only by a stored value other than -1.
    void getDelayAutoStart(int& delay);

    // Starts a new list: drops every "Module" and sets the count. The caller
    // then adds the modules with saveLastDownloadModule.
    void createLastDownload(int count);
    // Appends a "Module" child; state is the stage it reached, hash what its
    // list says of it (none: no hash keys). The count is not changed.
    void saveLastDownloadModule(dlModule module, int state, const ListedHash& hash = ListedHash());
    // Rewrites the first of the counted modules with the same name, version
    // and versionExtra; nothing when none matches. An empty hash keeps the
    // one stored, so steps that know nothing of hashes do not lose it.
    void changeStateLastDownloadModule(dlModule module, int state,
                                       const ListedHash& hash = ListedHash());
    // Puts the hashes of the counted modules into hashes, so that a run
    // continued after a restart checks its files as the first run would
    // have. Returns how many were found.
    int getLastDownloadHashes(CListedHashes& hashes);
    // Fills out[0..] with the counted modules whose stage is state, at most
    // max of them; elements not reached keep their contents. Returns how many
    // were filled.
    int getLastDownloadModule(int state, int max, dlModule* out);
    // Every counted module whose stage is state (asked as its count, then
    // the modules, as the two calls above would).
    std::vector<dlModule> getLastDownloadModules(int state);
    int getCountStateLastDownloadModule(int state);
    // "LastDownloadCount"; -1 without a file or without the node.
    int getCountLastDownloadModule();
    void clearLastDownload();

private:
    CHostLink link() const;
    // Loads the file, visits the counted module nodes of the last download
    // until visit returns false, and hands the file back.
    void readLastDownloadModules(const std::function<bool(CXMLWorkData&)>& visit);

    QString folder;
    std::optional<CHostLink> link_;
};
