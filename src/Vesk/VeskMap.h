#pragma once

// The front of a table: the object that the rest of a program talks to. It holds one
// implementation of the table at a time and forwards to it: a writer in process memory until
// `init`, then what the descriptor asks for, and a placeholder after a detach.
//
// Used from the one thread that owns the table's collection. The callbacks run on that thread,
// inside the calls that cause them.

#include "Mem/Notify.h"
#include "Mem/WriterLock.h"
#include "Mem/WriterSentry.h"
#include "Pello/Util.h"
#include "SharedMem/OwnerFile.h"
#include "SharedMem/RavoFile.h"
#include "Vesk/VeskDummy.h"
#include "Vesk/VeskMapBase.h"
#include "Vesk/VeskReader.h"
#include "Vesk/VeskWriter.h"

#include <cstddef>
#include <cstdlib>
#include <memory>
#include <utility>

namespace Vesk {

/// The writer that a front starts with: in process memory, and never mounted.
template <class Ops>
class Tmp final : public VeskWriter<Ops> {
  public:
    using VeskWriter<Ops>::VeskWriter;

    MoxSharedMem::MountStatus mountStatus() const override {
        return MoxSharedMem::MountStatus::notMounted;
    }
};

template <class Ops>
class VeskMap : public VeskMapBase, public Mem::WriterSentry::Notifiee {
  public:
    using Key = typename Ops::Key;
    using Value = typename Ops::Value;
    using Interface = VeskInterface<Ops>;
    using Notify = Mem::Notify<Key, Value>;

    VeskMap() = default;
    ~VeskMap() override;

    void validateVersionAnchor() const override { impl().validateVersionAnchor(); }
    Mem::CacheVersionAnchor getCacheVersionAnchor() const override {
        return impl().getCacheVersionAnchor();
    }
    bool compareVersionAnchor(const Mem::CacheVersionAnchor& anchor) const override {
        return getCacheVersionAnchor() == anchor;
    }
    void validateVersionAnchorHookIs(void (*hook)(const Mem::VersionAnchor&)) override {
        impl().validateVersionAnchorHookIs(hook);
    }
    Pello::String collName() const override { return impl().veskName(); }
    SharedMem::RavoId ravoId() const override { return impl().ravoId(); }
    MoxSharedMem::MountStatus mountStatus() const override {
        traceRoot("mountStatus");
        return impl().mountStatus();
    }
    Reader::Counters readerCounters() const override {
        return veskMapUpdateReaderCounters(impl().readerCounters());
    }
    Writer::Counters writerCounters() const override {
        return veskMapUpdateWriterCounters(impl().writerCounters());
    }

    /// Chooses and builds the implementation. Throws `std::bad_cast` when the descriptor is no
    /// `MapDescriptor`, and `InvalidInitializeException` when the table cannot be had in that
    /// way, for a writer also what its attaching throws. A second call with an equal descriptor
    /// does nothing, with another one it throws.
    ///
    /// `cleanupOnInit` comes before all of that: it removes the table's files also when this very
    /// front is their writer.
    void init(const Mem::CollectionDescriptor& descriptor) override;
    using VeskMapBase::init;

    /// Removes the table's files and leaves the front on a placeholder. Fatal when not
    /// initialised.
    void cleanupAndDetach() override;
    /// Removes the table's files.
    void cleanup() override {
        traceRoot("cleanup");
        impl().cleanup();
    }
    Mem::OruRootPath rootPath() const override { return impl().rootPath(); }
    bool validate() override {
        traceRoot("validate");
        return impl().validate();
    }
    bool validateFiles(const Pello::String& /*name*/, unsigned int /*size*/) override {
        traceRoot("validateFiles");
        return impl().validateFiles();
    }
    std::uint64_t sequence() const override {
        traceRoot("sequence");
        return impl().sequence();
    }
    /// Who writes the table: "<command>:<process id>", or an end of ":0" when nobody does.
    Pello::String owner() const override;
    /// Detaches for good: without sentry, and to be initialised anew.
    void controlDetach() override;
    std::uint32_t maxSize() const override { return impl().maxSize(); }
    std::uint32_t capacity() const override { return impl().capacity(); }
    void notifyingIs(bool on) const override;
    /// Seconds after which long work of a reader or shadow lets others run.
    void yieldTimeIs(const double& seconds) const override;
    void tryAttach() const override;
    bool clientQuiesced(const Pello::String& readerName) const override;
    bool quiesced() const override;
    bool connected() const override { return impl().connected(); }
    void criticalTaskCheckIs(bool check) override { impl().criticalTaskCheckIs(check); }
    bool criticalTaskCheck() const override { return impl().criticalTaskCheck(); }
    void scratchpadIs(std::uint64_t word) override { impl().scratchpadIs(word); }
    std::uint64_t scratchpad() const override { return impl().scratchpad(); }
    /// Has a reader take the place of what the front holds, unless it cannot attach. Fatal for a
    /// writer's front.
    void attach(const Pello::String& event) override;
    void detach(bool force) override;
    Pello::String classType() const override { return {}; }

    // What the sentry of a writer asks; the rest is above.
    bool changing() const override;

    // The table itself, for the attribute that owns the front. Corruption that is met in a read is
    // reported and read as absence; in a change it stops the process.
    /// The key's value, or the default value.
    const Value& safeLookup(const Key& key, bool& found) const;
    bool safeFirst(Value& out, IterHint& hint) const;
    bool safeNext(const Key& key, Value& out, IterHint& hint) const;
    /// Stores a value, over an existing one.
    void safeWrite(const Value& value);
    /// Removes an entry into the value buffer.
    bool safeRemove(const Key& key);
    Value* directWrite(const Value& value) { return impl().directWrite(value); }
    Value* directUpdate(const Key& key) { return impl().directUpdate(key); }
    void directCommit();
    std::uint32_t members() const { return impl().members(); }
    std::uint32_t buckets() const { return impl().buckets(); }
    std::uint32_t minSize() const { return impl().minSize(); }
    VeskType type() const { return impl().type(); }

  protected:
    std::unique_ptr<Interface> createDefaultLocalWriter() const;
    /// A placeholder takes the implementation's place and keeps it.
    void installDummy();
    Interface& impl() const {
        if (!impl_) [[unlikely]]
            Pello::fatal(debugHandler_.get(), tagOf("impl"), "{} has no implementation", name_);
        return *impl_;
    }
    void implIs(std::unique_ptr<Interface> implementation) { impl_ = std::move(implementation); }

    Notify notify_;

  private:
    void traceRoot(const char* operation) const {
        PELLO_TRACE(*debugHandler_, 5, tagOf(operation), "{}", rootPath());
    }
    void initReader();
    void initWriter();

    // Inlined, because a closure that goes through memory costs more than a small read.
    template <class Read>
    [[gnu::always_inline]] bool guardedRead(Read&& read) const;
    template <class Change>
    [[gnu::always_inline]] auto guardedChange(const char* operation, Change&& change);

    Ops ops_;
    std::unique_ptr<Interface> impl_;
    mutable double yieldTime_ = 0.05;

  protected:
    Value valueBuffer_; ///< what the latest removal took out
    bool orphanAssert_ = false;
};

template <class Ops>
VeskMap<Ops>::~VeskMap() {
    PELLO_TRACE(*debugHandler_, 2, tagOf("~VeskMap"), "deleting state");
    impl_.reset();
}

template <class Ops>
auto VeskMap<Ops>::createDefaultLocalWriter() const -> std::unique_ptr<Interface> {
    constexpr std::uint32_t kSize = 100;
    auto writer = std::make_unique<Tmp<Ops>>(debugHandler_, name_, MapDescriptor(kSize), ops_,
                                             Pello::String(), Pello::noop);
    writer->initialize("none");
    return writer;
}

template <class Ops>
void VeskMap<Ops>::init(const Mem::CollectionDescriptor& collectionDescriptor) {
    const auto refuse = [](const Pello::SourceTag& tag, const Pello::String& text) {
        Pello::raise<Pello::InvalidInitializeException>(tag, "{}", text);
    };
    if (orphanAssert_) {
        Pello::fatal(debugHandler_.get(), tagOf("init"),
                     "Re-initializing a collection that has already become an orphan and has "
                     "assertOnOrphanAccess set");
    }
    const auto& descriptor = dynamic_cast<const MapDescriptor&>(collectionDescriptor);
    if (descriptor.cleanupOnInit) impl().cleanup();
    if (initialized_) {
        if (descriptor == descriptor_) {
            PELLO_TRACE(*debugHandler_, 5, tagOf("init"), "name:{} already initialized, new {}",
                        name_, descriptor);
            return;
        }
        refuse(tagOf("init"), fmt::format("name:{} already initialized, old {}, new {}", name_,
                                          descriptor_, descriptor));
    }
    PELLO_TRACE(*debugHandler_, 1, tagOf("init"), "name:{} {}", name_, descriptor);
    if (descriptor.heapAlloc && !descriptor.localMem) {
        refuse(tagOf("init"), fmt::format("cannot initialize collection {} heap allocation in "
                                          "non-local mode not allowed",
                                          name_));
    }
    if (descriptor.type == VeskType::writer && descriptor.size == 0) {
        refuse(tagOf("init"), fmt::format("0 is not a valid initialization size for collection {} "
                                          "in writer mode",
                                          name_));
    }
    const bool shadow =
        descriptor.type == VeskType::shadow || descriptor.type == VeskType::keyshadow;
    if (shadow && !descriptor.localMem && !descriptor.synchronousInit) {
        if (notify_.keyNotifications) notify_.park();
        if (!notifying_) {
            Pello::fatal(debugHandler_.get(), tagOf("init"),
                         "notifications unexpectedly disabled prior to initialization with "
                         "asynchronous mode");
        }
    }
    if (!Ops::notifying && shadow) {
        const Pello::String why =
            fmt::format("DummyTorvuWriter not supported in {} mode", descriptor.type);
        refuse(tagOf("init"), fmt::format("cannot initialize collection {} with {}", name_, why));
    }
    impl_.reset();
    descriptor_ = descriptor;
    debugHandler_ =
        Pello::Platform::getDebugHandler(Pello::Util::traceHandleName(name_, handle_, false), true);
    if (mounter_) {
        Pello::fatal(debugHandler_.get(), tagOf("init"), "Vesk mounter should not exist");
    }
    if (descriptor_.prevValue) {
        Pello::fatal(debugHandler_.get(), tagOf("init"),
                     "prevValue mount-time option enabled without specifying "
                     "`captureNotifyValues property");
    }
    if (!descriptor_.localMem && descriptor_.type != VeskType::writer) {
        initReader();
    } else {
        initWriter();
    }
    initialized_ = true;
    if (descriptor_.type == VeskType::writer) {
        notify_.quiescedNotify(true);
        notify_.mountStatusNotify();
    }
}

template <class Ops>
void VeskMap<Ops>::initReader() {
    const auto number = static_cast<std::uint32_t>(descriptor_.type);
    if (number > static_cast<std::uint32_t>(VeskType::keyshadow)) {
        Pello::fatal(debugHandler_.get(), tagOf("init"), "not a valid reader type:{}", number);
    }
    impl_ = std::make_unique<VeskDummy<Ops>>(debugHandler_, name_, ops_, nullptr);
    try {
        mounter_ = std::make_unique<Mem::ReaderSentry>(
            debugHandler_, rootPath(), *this,
            std::vector<Mem::ReaderSentry::IdentityWord>{
                {SlotTableBase::FILENAME, SlotHeaderCommon::kRavoIdOffset},
                {VeskCore::BucketWriter<SlotLink>::FILENAME,
                 offsetof(VeskCore::BucketTable::Header, ravoId)}});
        mounter_->mountAttempt(eventInit_, false);
    } catch (const Pello::InvalidInitializeException&) {
        // In a root of its own this process may see no tables at all.
        if (std::getenv("K9_CHROOT") == nullptr) throw;
    }
}

template <class Ops>
void VeskMap<Ops>::initWriter() {
    impl_ = std::make_unique<VeskWriter<Ops>>(debugHandler_, name_, descriptor_, ops_, classType(),
                                              notify_.quiescedNotify);
    if (!impl_->initialize("none")) {
        Pello::raise<Pello::InvalidInitializeException>(
            tagOf("init"), "failed to initialize collection {}", name_);
    }
    if (!descriptor_.localMem && descriptor_.type == VeskType::writer) {
        mounter_ = std::make_unique<Mem::WriterSentry>(
            debugHandler_, *this, impl_->rootPath(),
            std::vector<Pello::String>{SharedMem::RavoFile::RAVO_NAME,
                                       SharedMem::OwnerFile::FILENAME, SlotTableBase::FILENAME,
                                       VeskCore::BucketWriter<SlotLink>::FILENAME});
        mounter_->mountAttempt(eventInit_, false);
    }
}

template <class Ops>
void VeskMap<Ops>::installDummy() {
    std::unique_ptr<Interface> replaced = std::move(impl_);
    if (orphanAssert_) {
        impl_ =
            std::make_unique<VeskStrictDummy<Ops>>(debugHandler_, name_, ops_, std::move(replaced));
    } else {
        impl_ = std::make_unique<VeskDummy<Ops>>(debugHandler_, name_, ops_, std::move(replaced));
    }
}

template <class Ops>
void VeskMap<Ops>::attach(const Pello::String& event) {
    if (mode() == VeskType::writer) {
        Pello::fatal(debugHandler_.get(), tagOf("attach"), "invoked for a writer");
    }
    const Transition transition(*this);
    PELLO_TRACE(*debugHandler_, 2, tagOf("attach"), "attempting to attach {} as {}", rootPath(),
                mode());
    // There is no shadow to be had yet: such a front stays on its placeholder.
    std::unique_ptr<Interface> reader;
    if (mode() == VeskType::reader) {
        reader = std::make_unique<VeskReader<Ops>>(debugHandler_, name_, ops_, nullptr);
        reader->yieldTimeIs(yieldTime_);
        reader->notifyingIs(notifying_);
    }
    if (!reader || !reader->initialize(event)) {
        PELLO_TRACE(*debugHandler_, 1, tagOf("attach"), "initialize failed for {}", rootPath());
        return;
    }
    PELLO_TRACE(*debugHandler_, 2, tagOf("attach"), "{}", "successful");
    impl_ = std::move(reader);
    if (type() == VeskType::reader) notify_.quiescedNotify(true);
    notify_.mountStatusNotify();
}

template <class Ops>
void VeskMap<Ops>::detach(bool force) {
    const Transition transition(*this);
    const Mem::OruRootPath root(*debugHandler_, name_, false);
    PELLO_TRACE(*debugHandler_, 1, tagOf("detach"), "{}", root);
    if (impl_) impl_->detach(force);
    if (auto* const sentry = dynamic_cast<Mem::ReaderSentry*>(mounter_.get());
        sentry != nullptr && impl_ &&
        impl_->mountStatus() == MoxSharedMem::MountStatus::detaching) {
        sentry->enabledIs(false);
    } else {
        installDummy();
    }
    notify_.quiescedNotify(false);
    notify_.mountStatusNotify();
    if (mounter_) mounter_->afterDetach();
}

template <class Ops>
void VeskMap<Ops>::controlDetach() {
    detach(true);
    mounter_.reset();
    initialized_ = false;
}

template <class Ops>
void VeskMap<Ops>::cleanupAndDetach() {
    traceRoot("cleanupAndDetach");
    if (!initialized_) {
        Pello::fatal(debugHandler_.get(), tagOf("cleanupAndDetach"),
                     "{} trying to cleanup uninitialized vesk.", rootPath());
    }
    cleanup();
    controlDetach();
}

template <class Ops>
Pello::String VeskMap<Ops>::owner() const {
    Pello::String description;
    std::uint32_t process = 0;
    try {
        const SharedMem::OwnerFile file(debugHandler_, rootPath(), false);
        const Pello::String socketName = file.ploxetInfo().socketName;
        if (Mem::WriterLock::ownerIsAlive(*debugHandler_, socketName, description)) {
            process = SharedMem::PloxetName::PloxetNameIs(socketName).process.pid;
        }
    } catch (const Pello::CorruptionDetectedException& e) {
        PELLO_TRACE(*debugHandler_, 1, tagOf("owner"), "corruption detected: {}", e.message());
    }
    return fmt::format("{}:{}", description, process);
}

template <class Ops>
void VeskMap<Ops>::notifyingIs(bool on) const {
    PELLO_TRACE(*debugHandler_, 5, tagOf("notifyingIs"), "{} notifying:{}", rootPath(), on);
    if (initialized_ && !notify_.keyNotifications) {
        Pello::fatal(debugHandler_.get(), tagOf("notifyingIs"),
                     "not allowed at this time, initialized:{} keyNotifications:{}", initialized_,
                     notify_.keyNotifications);
    }
    notifying_ = on;
    impl().notifyingIs(on);
    if (on && mounter_) mounter_->mountAttempt(eventNotifEnabled_, false);
}

template <class Ops>
void VeskMap<Ops>::yieldTimeIs(const double& seconds) const {
    PELLO_TRACE(*debugHandler_, 5, tagOf("yieldTimeIs"), "{} yieldTime:{}", rootPath(), seconds);
    yieldTime_ = seconds;
    impl().yieldTimeIs(seconds);
}

template <class Ops>
void VeskMap<Ops>::tryAttach() const {
    traceRoot("tryAttach");
    if (!mounter_ || mode() == VeskType::writer) return;
    const auto status = [this] { return static_cast<std::uint32_t>(impl().mountStatus()); };
    if (const std::uint32_t before = status(); before != 0) {
        PELLO_TRACE(*debugHandler_, 5, tagOf("tryAttach"), "{} is already mounted, mountStatus:{}",
                    rootPath(), before);
        return;
    }
    mounter_->mountAttempt(eventTryAttach_, false);
    if (const std::uint32_t after = status(); after != 0) {
        Pello::Util::emitCanaryLog(*debugHandler_,
                                   fmt::format("mounted {} mountStatus:{}", rootPath(), after));
    }
}

template <class Ops>
bool VeskMap<Ops>::clientQuiesced(const Pello::String& readerName) const {
    PELLO_TRACE(*debugHandler_, 5, tagOf("clientQuiesced"), "{} readerName:{}", rootPath(),
                readerName);
    return impl().clientQuiesced(readerName);
}

template <class Ops>
bool VeskMap<Ops>::quiesced() const {
    PELLO_TRACE(*debugHandler_, 5, tagOf("quiesced"), "{} type:{}", rootPath(),
                static_cast<std::uint32_t>(impl().type()));
    return impl().quiesced();
}

template <class Ops>
bool VeskMap<Ops>::changing() const {
    const auto* const writer = dynamic_cast<const VeskWriter<Ops>*>(impl_.get());
    return writer != nullptr && writer->directOpen();
}

template <class Ops>
template <class Read>
inline bool VeskMap<Ops>::guardedRead(Read&& read) const {
    try {
        return read();
    } catch (const Pello::CorruptionDetectedException& e) {
        doCorruptionDetected(e.message());
        if (mounter_) mounter_->readFailed();
        return false;
    }
}

template <class Ops>
auto VeskMap<Ops>::safeLookup(const Key& key, bool& found) const -> const Value& {
    const Value* value = nullptr;
    const bool looked = guardedRead([&] {
        value = impl().lookup(key, found, nullptr);
        return true;
    });
    if (looked) return *value;
    found = false;
    return Ops::defaultValue();
}

template <class Ops>
bool VeskMap<Ops>::safeFirst(Value& out, IterHint& hint) const {
    return guardedRead([&] { return impl().first(out, hint); });
}

template <class Ops>
bool VeskMap<Ops>::safeNext(const Key& key, Value& out, IterHint& hint) const {
    return guardedRead([&] { return impl().next(key, out, hint); });
}

template <class Ops>
template <class Change>
inline auto VeskMap<Ops>::guardedChange(const char* operation, Change&& change) {
    try {
        return change();
    } catch (const Pello::CorruptionDetectedException& e) {
        doCorruptionDetected(e.message());
        Pello::fatal(debugHandler_.get(), tagOf(operation), "in no man's land");
    }
}

template <class Ops>
void VeskMap<Ops>::safeWrite(const Value& value) {
    guardedChange("safeWrite", [&] { impl().write(value, true); });
}

template <class Ops>
bool VeskMap<Ops>::safeRemove(const Key& key) {
    return guardedChange("safeRemove", [&] { return impl().remove(key, valueBuffer_); });
}

template <class Ops>
void VeskMap<Ops>::directCommit() {
    guardedChange("directCommit", [&] { impl().directCommit(); });
}

} // namespace Vesk
