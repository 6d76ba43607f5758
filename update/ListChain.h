#pragma once
// The list chain: the configuration list, each offered configuration's
// description and module list, then the module description list and each
// module's description, fetched one after another; the offered rows appear
// in the view as their files arrive.
#include <QString>

#include "update/DlModule.h"

class CUpdateWorkflow;
struct ModuleListSources;

class CListChain {
public:
    explicit CListChain(CUpdateWorkflow& flow) : flow_(flow) {}

    // The two lists' names on the server and in the download folder.
    static QString configListName();
    static QString moduleListName();

    // A new search; its rows replace the last search's.
    void getConfigDesc();
    void getModuleDesc();
    // Shows the lists already in the download folder, without asking the
    // server.
    void initFrame();
    bool searching() const { return searchRunning_; }
    void setSearching() { searchRunning_ = true; }
    bool fetchedOnce() const { return listsFetchedOnce_; }

    // Completions of the chain's requests.
    void parseFileTxt(const QString& file, int param);
    void parseFileTxt1(const QString& file, int param);
    void parseFileTxt2(const QString& file, int param);

    ModuleListSources listSources() const;
    void parseModuleListFile(const QString& file, dlListModule& list, const QString& configName) const;
    void parseConfigListFile(const QString& file, dlListModule& list) const;

private:
    void appendConfigurationRow(const dlModule& configuration, const QString& moduleListFile);
    void appendModuleRow(const dlModule& module);
    void showListResultTexts();
    void finishListChain();
    void fetch(const QString& name, int param, int kind);

    CUpdateWorkflow& flow_;
    dlListModule configList_;
    dlListModule moduleList_;
    int configIndex_ = 0;
    int moduleDescIndex_ = 0;
    bool searchRunning_ = false;
    bool listsFetchedOnce_ = false;
};
