#pragma once

#include "Mem/FolderWatch.h"
#include "Mem/RootPath.h"
#include "Mem/Sentry.h"
#include "Pello/Debug.h"
#include "Pello/Loop.h"
#include "SharedMem/RavoId.h"

#include <memory>
#include <vector>

namespace Mem {

/// Looks after the files of a table that this process writes, from the loop of the thread that made
/// it: a reader that finds the table corrupt leaves a marker there, and the writer then checks its
/// files and the table itself; the same when one of its files goes missing. In a process that never
/// runs its loop nothing is looked at but on request.
class WriterSentry : public Sentry, private Pello::Debuggable {
  public:
    /// The front of the table.
    class Notifiee {
      public:
        virtual ~Notifiee() = default;
        virtual SharedMem::RavoId ravoId() const = 0;
        virtual bool validate() = 0;
        virtual bool validateFiles(const Pello::String& name, unsigned int size) = 0;
        /// A change of the table is half done, and a check would see that.
        virtual bool changing() const = 0;
    };

    /// `files` are the names of the table's files.
    WriterSentry(std::shared_ptr<Pello::Platform::DebugHandler> handler, Notifiee& notifiee,
                 const OruRootPath& rootPath, std::vector<Pello::String> files);

    /// Checks files and table when a reader has left its marker, or a file is gone; with `force` in
    /// any case. The result is traced at level 1, or 0 when something is wrong. In the midst of a
    /// change the check waits for a later turn of the loop.
    void mountAttempt(const Pello::String& event, bool force) override;

  private:
    std::vector<Pello::String> missing() const;
    bool due() const;
    void check();

    Notifiee& notifiee_;
    OruRootPath rootPath_;
    FolderWatch watch_;
    Pello::Loop::Handle later_;
    std::vector<Pello::String> files_;
    std::vector<Pello::String> knownMissing_; ///< a loss is reported once
};

} // namespace Mem
