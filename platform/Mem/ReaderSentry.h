#pragma once

// What mounts a table for reading: it waits for the files that another process writes, has the
// front attach to them, and keeps it on the table that the name leads to.
//
// It looks at the identities that ravo, slot and bucket file carry, and at the files themselves,
// before anything is mapped: while a writer formats a table the three differ, and a reader that
// attached then would call the table corrupt. Which table a front is attached to is the identity
// together with the files' inodes, which cannot come again while the front maps them.
//
// Looks are made on request, whenever something happens in the table's folder (or in the nearest
// one above it, while there is none), every second, when a read has failed, and after a failed
// attach from 50 ms up to 2 s later. All but the first come from the loop of the thread that made
// the sentry; in a process that never runs its loop a table is found by `mountAttempt` alone.

#include "Mem/FolderWatch.h"
#include "Mem/RootPath.h"
#include "Mem/Sentry.h"
#include "Pello/Debug.h"
#include "SharedMem/RavoId.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace Mem {

class ReaderSentry : public Sentry, private Pello::Debuggable {
  public:
    /// The front that waits.
    class Notifiee {
      public:
        virtual ~Notifiee() = default;
        virtual void attach(const Pello::String& event) = 0;
        virtual void detach(bool force) = 0;
        virtual Pello::String modeStr() const = 0;
        virtual bool readerFullyAttached() const = 0;
        virtual bool disconnectedActiveReader() const = 0;
        virtual bool notifying() const = 0;
        virtual bool localMem() const = 0;
        /// Of the table that the front is attached to; none when it is not.
        virtual SharedMem::RavoId ravoId() const = 0;
        /// The front is in the midst of an attach or detach.
        virtual bool inTransition() const = 0;
    };

    /// A file of the table, and where in it the table's identity stands.
    struct IdentityWord {
        Pello::String fileName;
        std::uint32_t offset;
    };

    ReaderSentry(std::shared_ptr<Pello::Platform::DebugHandler> handler,
                 const OruRootPath& rootPath, Notifiee& notifiee, std::vector<IdentityWord> files);

    /// Looks at the files now, and has the front attach or detach as they say. In the midst of
    /// either the look waits for the next turn of the loop. Throws what attaching throws.
    void mountAttempt(const Pello::String& event, bool force) override;

    /// The next turn of the loop brings a look.
    void readFailed() override;

    /// Whether attempts may lead to an attach: not while a shadow still flushes what it held.
    void enabledIs(bool enabled) { enabled_ = enabled; }
    bool enabled() const { return enabled_; }

  private:
    using Inode = std::pair<std::uint64_t, std::uint64_t>; ///< device and number
    struct Table {
        SharedMem::RavoId id;
        std::vector<Inode> files;
        bool exists = false; ///< all files are there
        bool agrees = false; ///< and carry one identity

        bool operator==(const Table&) const = default;
    };

    void watchNearestFolder();
    Table peek() const;
    void attach(const Table& table, const Pello::String& event);
    void lookAgain();
    void ownAttempt();
    void ownAttempt(const Pello::String& event);

    OruRootPath rootPath_;
    Notifiee& notifiee_;
    std::vector<IdentityWord> files_;
    bool enabled_ = true;
    Table attachedTo_;
    bool everAttached_ = false;
    bool lookIsPosted_ = false;
    Pello::Loop::Ptr loop_; ///< null when the process has no descriptor for one
    std::optional<std::pair<Pello::String, Inode>> watched_;
    std::unique_ptr<FolderWatch> watch_;
    Pello::Loop::Delay retryDelay_;
    Pello::Loop::Handle retry_;
    Pello::Loop::Handle safety_;
    Pello::AliveToken alive_;
};

} // namespace Mem
