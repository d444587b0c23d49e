#pragma once

// What a table front holds while no table is attached.

#include "Pello/Debug.h"
#include "Vesk/VeskInterface.h"

#include <memory>
#include <utility>

namespace Vesk {

/// What both placeholders share. A placeholder may keep the implementation that it replaced, so
/// that the files can still be cleaned up, and destroys it at its own end.
template <class Ops>
class DummyBase : public VeskInterface<Ops>, protected Pello::Debuggable {
  public:
    DummyBase(const char* className, std::shared_ptr<Pello::Platform::DebugHandler> handler,
              Pello::String name, const Ops& ops, std::unique_ptr<VeskInterface<Ops>> prevImpl)
        : VeskInterface<Ops>(ops)
        , Debuggable(std::move(handler))
        , className_(className)
        , name_(std::move(name))
        , rootPath_(*debugHandler(), name_, false)
        , prevImpl_(std::move(prevImpl)) {}

    void detach(bool /*force*/) override { trace("detach"); }
    bool validate() override {
        trace("validate");
        return true;
    }
    bool validateFiles() override {
        trace("validateFiles");
        return true;
    }
    void cleanup() override {
        trace("cleanup");
        if (prevImpl_) prevImpl_->cleanup();
    }
    Mem::OruRootPath rootPath() const override { return rootPath_; }
    Pello::String veskName() const override { return rootPath_.dirName(); }

  protected:
    Pello::SourceTag tagOf(const char* operation, unsigned line = __builtin_LINE()) const {
        return {className_, "Vesk/VeskInterface", operation, line};
    }
    void trace(const char* operation) const {
        PELLO_TRACE(*this, 5, tagOf(operation), "{}", name_);
    }
    const Pello::String& name() const { return name_; }

  private:
    const char* className_;
    Pello::String name_;
    Mem::OruRootPath rootPath_;
    std::unique_ptr<VeskInterface<Ops>> prevImpl_;
};

/// Answers as an empty table.
template <class Ops>
class VeskDummy final : public DummyBase<Ops> {
  public:
    using Key = typename Ops::Key;
    using Value = typename Ops::Value;

    VeskDummy(std::shared_ptr<Pello::Platform::DebugHandler> handler, Pello::String name,
              const Ops& ops, std::unique_ptr<VeskInterface<Ops>> prevImpl)
        : DummyBase<Ops>("VeskDummy", std::move(handler), std::move(name), ops,
                         std::move(prevImpl)) {}

    bool initialize(const Pello::String& event) override {
        PELLO_TRACE(*this, 5, this->tagOf("initialize"), "{} event:{}", this->name(), event);
        return true;
    }
    std::uint32_t members() const override { return none("members"); }
    std::uint32_t buckets() const override { return none("buckets"); }
    std::uint32_t minSize() const override { return none("minSize"); }
    std::uint32_t maxSize() const override { return none("maxSize"); }
    std::uint32_t capacity() const override { return none("capacity"); }
    VeskType type() const override {
        this->trace("type");
        return VeskType::reader;
    }
    Reader::Counters readerCounters() const override {
        this->trace("readerCounters");
        return {};
    }
    MoxSharedMem::MountStatus mountStatus() const override {
        this->trace("mountStatus");
        return MoxSharedMem::MountStatus::notMounted;
    }
    const Value* lookup(const Key& /*key*/, bool& found, void* /*buffer*/) const override {
        this->trace("lookup");
        found = false;
        return &Ops::defaultValue();
    }
    bool first(Value& out, IterHint& /*hint*/) const override {
        this->trace("first");
        out = Ops::defaultValue();
        return false;
    }
    bool next(const Key& /*key*/, Value& out, IterHint& hint) const override {
        this->trace("next");
        return first(out, hint);
    }
    void validateVersionAnchor() const override {
        Pello::fatal(this->debugHandler().get(), this->tagOf("validateVersionAnchor"),
                     "should never be called since it's impossible for a lookup to succeed");
    }

  private:
    std::uint32_t none(const char* operation) const {
        this->trace(operation);
        return 0;
    }
};

/// Stops the process on every query: stands in for the table of a collection that has lost its
/// parent and must not be used any more.
template <class Ops>
class VeskStrictDummy final : public DummyBase<Ops> {
  public:
    using Key = typename Ops::Key;
    using Value = typename Ops::Value;

    VeskStrictDummy(std::shared_ptr<Pello::Platform::DebugHandler> handler, Pello::String name,
                    const Ops& ops, std::unique_ptr<VeskInterface<Ops>> prevImpl)
        : DummyBase<Ops>("VeskStrictDummy", std::move(handler), std::move(name), ops,
                         std::move(prevImpl)) {}

    bool initialize(const Pello::String& event) override {
        Pello::fatal(this->debugHandler().get(), this->tagOf("initialize"),
                     "{} rootPath:{} event:{}{}", this->name(), this->rootPath(), event,
                     orphanSuffix_);
    }
    std::uint32_t members() const override { return refuse<std::uint32_t>("members"); }
    std::uint32_t buckets() const override { return refuse<std::uint32_t>("buckets"); }
    std::uint32_t minSize() const override { return refuse<std::uint32_t>("minSize"); }
    std::uint32_t maxSize() const override { return refuse<std::uint32_t>("maxSize"); }
    std::uint32_t capacity() const override { return refuse<std::uint32_t>("capacity"); }
    VeskType type() const override { return refuse<VeskType>("type"); }
    Reader::Counters readerCounters() const override {
        return refuse<Reader::Counters>("readerCounters");
    }
    MoxSharedMem::MountStatus mountStatus() const override {
        return MoxSharedMem::MountStatus::notMounted;
    }
    const Value* lookup(const Key& key, bool& /*found*/, void* /*buffer*/) const override {
        return refuse<const Value*>("lookup", key);
    }
    bool first(Value& /*out*/, IterHint& /*hint*/) const override { return refuse<bool>("first"); }
    bool next(const Key& key, Value& /*out*/, IterHint& /*hint*/) const override {
        return refuse<bool>("next", key);
    }
    void validateVersionAnchor() const override { refuse<void>("validateVersionAnchor"); }

  private:
    /// The result type is for the functions that would return one.
    template <class Result>
    [[noreturn]] Result refuse(const char* operation) const {
        Pello::fatal(this->debugHandler().get(), this->tagOf(operation),
                     "invoked, name:{} rootpath:{}{}", this->name(), this->rootPath(),
                     orphanSuffix_);
    }
    template <class Result>
    [[noreturn]] Result refuse(const char* operation, const Key& key) const {
        Pello::fatal(this->debugHandler().get(), this->tagOf(operation),
                     "invoked, name:{} rootpath:{} key:{}{}", this->name(), this->rootPath(), key,
                     orphanSuffix_);
    }

    const Pello::String orphanSuffix_ =
        ". If you're seeing this, you're trying to operate on an orphan vesk entity";
};

} // namespace Vesk
