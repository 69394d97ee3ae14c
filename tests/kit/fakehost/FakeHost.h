#pragma once

#include <functional>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "IInterface.h"
#include "Journal.h"
#include "QueueBoard.h"
#include "sal/CmdProcessor.h"
#include "sal/LogManager.h"
#include "sal/Module.h"

namespace fakehost {

/// A network adapter of the fake machine.
struct Adapter {
    std::string name;
    std::string mainAddress;
    std::vector<std::string> secondaryAddresses;
};

/// The machine that the object under test runs on, fresh for each test, one at a time. What XML is read from
/// are real files in a temporary directory that the fake shows as "/"; its "/wp" is the working directory, so
/// that a relative path opens a real file too. All else (directories made, links, /var/data, adapters,
/// modules, queues, processes) only happens here and in the journal.
class FakeHost {
public:
    FakeHost();
    ~FakeHost();
    FakeHost(const FakeHost&) = delete;
    FakeHost& operator=(const FakeHost&) = delete;

    static FakeHost& current();
    /// For a process that ends here, without the destructor.
    static void removeFiles();

    Journal& journal() { return Journal::instance(); }
    QueueBoard& queues() { return QueueBoard::instance(); }
    void fail(const std::string& pattern, int times = -1) { journal().fail(pattern, times); }

    /// Writes a real file: path as the machine under test sees it, absolute; parents are made.
    void writeFile(const std::string& path, const std::string& text);
    /// Makes a real directory.
    void makeDirectory(const std::string& path);
    /// Where a path of the fake machine really is; a relative one lies under its working directory.
    std::string realPath(const std::string& path) const;

    /// The loader finds a module under this path; make is called for each load and gives the driver, which
    /// the module owns.
    void addModule(const std::string& path, std::function<IInterface*()> make);

    void removeLogManager() { m_pLogManager.reset(); }
    void removeCmdProcessor() { m_pCmdProcessor.reset(); }

    std::string workingDirectory = "/wp";
    std::string exeDirectory = "/opt/host/bin";
    std::map<std::string, std::list<std::string>> entries;  ///< what getDirList answers
    std::map<std::string, std::list<std::string>>
        fileLists;  ///< answers of getFileList in an order of their own
    std::vector<Adapter> adapters{{"eth0", "192.0.2.10", {}}};
    std::map<std::string, std::function<IInterface*()>> modules;
    std::vector<sal::Module*> loaded;  ///< all that were ever loaded, in order; not owned

private:
    std::string m_root;
    std::string m_formerDirectory;
    std::unique_ptr<sal::LogManager> m_pLogManager;
    std::unique_ptr<sal::CmdProcessor> m_pCmdProcessor;
};

}  // namespace fakehost
