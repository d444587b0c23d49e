#include "Generic.h"

#include "ExitCode.h"
#include "Report.h"
#include "Show.h"
#include "Tables.h"

#include "Mox/GenericIf.h"
#include "MoxVesk/MountInfo.h"
#include "Vesk/VeskMapBase.h"

#include <fmt/format.h>

#include <algorithm>
#include <iostream>
#include <memory>
#include <stdexcept>

namespace {

using Json = nlohmann::ordered_json;
using Mox::AttributeDescriptor;
using Mox::AttributeKind;
using Mox::TypeDescriptor;
using Mox::TypeKind;

/// What the user named and there is not.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

using Mox::AnyValue;

/// Numbers and truth values as such, all else as text.
Json jsonOf(const AnyValue& value) {
    std::string text = value.text();
    if (value.type().name == "bool") return text == "True";
    return value.type().name == "U32" ? Json::parse(text) : Json(text);
}

void answer(bool json, const std::vector<std::unique_ptr<AnyValue>>& values) {
    Json list = Json::array();
    for (const auto& value : values) {
        if (json) {
            list.push_back(jsonOf(*value));
        } else {
            std::cout << value->text() << '\n';
        }
    }
    if (json) print(std::cout, list);
}

void answer(bool json, const AnyValue& value) {
    if (json) {
        print(std::cout, jsonOf(value));
    } else {
        std::cout << value.text() << '\n';
    }
}

/// A registered type and one of its attributes.
class Named {
  public:
    explicit Named(const GenericOptions& options)
        : type_(typeOf(options.type))
        , attribute_(attributeOf(options.attribute)) {}

    const TypeDescriptor& type() const { return type_; }
    const AttributeDescriptor& attribute() const { return attribute_; }
    bool isEntity() const { return type_.kind == TypeKind::entity; }

    /// A type that this one's attributes refer to.
    const TypeDescriptor& referred(std::string_view name) const {
        const TypeDescriptor* const found =
            Mox::typeIn(*Mox::moduleNamed(type_.handle.module), name);
        if (found == nullptr) throw UsageError(fmt::format("no type {}", name));
        return *found;
    }
    const AttributeDescriptor* find(std::string_view name) const {
        const auto at =
            std::find_if(type_.attributes.begin(), type_.attributes.end(),
                         [name](const AttributeDescriptor& each) { return each.name == name; });
        return at == type_.attributes.end() ? nullptr : &*at;
    }
    void operate(void* out, void* instance, const AttributeDescriptor& attribute, unsigned op,
                 void* const* args = nullptr) const {
        const Mox::MoxAttrBase handle{type_.handle, attribute.number};
        if (Mox::genericIfAttributeOp(type_, out, instance, &handle, op, nullptr, args) != 0) {
            throw UsageError(fmt::format("{} of {} cannot do that", attribute.name, type_.name));
        }
    }

  private:
    static const TypeDescriptor& typeOf(const std::string& name) {
        const TypeDescriptor* const type = Mox::typeNamed(name);
        if (type != nullptr) return *type;
        std::string known;
        for (const Mox::ModuleDescriptor* const module : Mox::modules()) {
            for (const TypeDescriptor& each : module->types) {
                if (!each.attributes.empty()) known += fmt::format("\n  {}", each.name);
            }
        }
        throw UsageError(fmt::format("no type \"{}\"; types with attributes are:{}", name, known));
    }
    const AttributeDescriptor& attributeOf(const std::string& name) const {
        if (const AttributeDescriptor* const found = find(name)) return *found;
        std::string known;
        for (const AttributeDescriptor& each : type_.attributes) {
            known += fmt::format(" {}", each.name);
        }
        throw UsageError(fmt::format("{} has no attribute \"{}\" but{}", type_.name, name, known));
    }

    const TypeDescriptor& type_;
    const AttributeDescriptor& attribute_;
};

/// A collection, read from where another process publishes it.
class Published {
  public:
    /// At `path`, or where collections of the type are mounted.
    explicit Published(const Named& named, std::string path = "")
        : entity_(Mox::newEntityForDir(named.type(), std::string(named.type().name), nullptr)) {
        const AttributeDescriptor* const mountPath = named.find("mountPath");
        const AttributeDescriptor* const mountInfo = named.find("writerMountInfo");
        if (mountPath == nullptr || mountInfo == nullptr) {
            throw UsageError(fmt::format("{} is not published", named.type().name));
        }
        if (path.empty()) named.operate(&path, nullptr, *mountPath, Mox::opRead);
        MoxVesk::MountInfo info;
        named.operate(&info, nullptr, *mountInfo, Mox::opCall);
        const Mox::Ptr<MoxVesk::Entity> entity(&dynamic_cast<MoxVesk::Entity&>(*entity_));
        mounter_.mount(entity, path, info, Vesk::VeskType::reader);
        for (const auto& table : info.collections()) {
            fronts_.push_back(&dynamic_cast<Vesk::VeskMapBase&>(*entity->tableControl(table.name)));
        }
        instance_ =
            Mox::genericIfVoidPtrIs(named.type(), entity.get(), {"Entity", 0}, named.type().handle);
    }

    void* instance() const { return instance_; }
    Mox::Ptr<Mox::PtrInterface>& reference() { return entity_; }
    const std::vector<Vesk::VeskMapBase*>& fronts() const { return fronts_; }

  private:
    Mox::Ptr<Mox::PtrInterface> entity_;
    MoxVesk::Mounter mounter_;
    std::vector<Vesk::VeskMapBase*> fronts_;
    void* instance_ = nullptr;
};

/// The instance that an attribute is of, as far as it needs one.
class Instance {
  public:
    /// A value type's is read from the first of the arguments, which is then taken from them.
    Instance(const Named& named, std::vector<std::string>& arguments) {
        const AttributeKind kind = named.attribute().kind;
        if (kind == AttributeKind::constant || kind == AttributeKind::staticFunction) return;
        if (named.isEntity()) {
            published_ = std::make_unique<Published>(named);
            state_ = stateOf(published_->fronts());
            return;
        }
        if (arguments.empty()) {
            throw UsageError(fmt::format("a value of {} is missing", named.type().name));
        }
        value_ = std::make_unique<AnyValue>(named.type());
        value_->textIs(arguments.front());
        arguments.erase(arguments.begin());
    }

    TableState state() const { return state_; }
    void* get() const {
        return value_ ? value_->get() : published_ ? published_->instance() : nullptr;
    }
    /// The exit code after reads.
    int code() const {
        if (published_ && sawCorruption(published_->fronts())) return exitCorrupt;
        return exitDone;
    }

  private:
    std::unique_ptr<AnyValue> value_;
    std::unique_ptr<Published> published_;
    TableState state_ = TableState::complete;
};

/// The arguments of a call, of the types of its parameters.
class Arguments {
  public:
    Arguments(const Named& named, std::span<const Mox::Parameter> parameters,
              const std::vector<std::string>& texts) {
        if (texts.size() != parameters.size()) {
            std::string wanted;
            for (const auto& [name, type] : parameters) {
                wanted += fmt::format(" {} ({})", name, type);
            }
            throw UsageError(fmt::format("{} of {} takes {} arguments, found {}:{}",
                                         named.attribute().name, named.type().name,
                                         parameters.size(), texts.size(), wanted));
        }
        for (std::size_t i = 0; i < texts.size(); ++i) {
            const TypeDescriptor& type = named.referred(parameters[i].type);
            if (type.kind == TypeKind::entity) {
                GenericOptions of;
                of.type = type.name;
                of.attribute = "mountPath";
                entities_.push_back(std::make_unique<Published>(Named(of), texts[i]));
                const TableState state = stateOf(entities_.back()->fronts());
                if (state_ == TableState::complete) state_ = state;
                pointers_.push_back(&entities_.back()->reference());
                continue;
            }
            values_.push_back(std::make_unique<AnyValue>(type));
            try {
                values_.back()->textIs(texts[i]);
            } catch (const Mox::RangeException& e) {
                throw UsageError(fmt::format("{}: {}", parameters[i].name, e.message()));
            }
            pointers_.push_back(values_.back()->get());
        }
    }

    void* const* get() const { return pointers_.data(); }
    TableState state() const { return state_; }

  private:
    std::vector<std::unique_ptr<AnyValue>> values_;
    std::vector<std::unique_ptr<Published>> entities_;
    std::vector<void*> pointers_;
    TableState state_ = TableState::complete;
};

int getTable(const Named& named, const GenericOptions& options, const Instance& instance) {
    const TypeDescriptor& element = named.referred(named.attribute().type);
    if (!options.arguments.empty()) {
        const Mox::Parameter key{"key", named.attribute().keyType};
        const Arguments arguments(named, {&key, 1}, options.arguments);
        bool found = false;
        named.operate(&found, instance.get(), named.attribute(), Mox::opHas, arguments.get());
        if (!found) {
            complain(fmt::format("no element {} in {}", options.arguments[0], options.attribute));
            return exitFailed;
        }
        AnyValue value(element);
        named.operate(value.get(), instance.get(), named.attribute(), Mox::opRead, arguments.get());
        answer(options.json, value);
        return exitDone;
    }
    std::vector<std::unique_ptr<AnyValue>> values;
    const Mox::IteratorOps* ops = nullptr;
    void* const each =
        Mox::genericIfIterator(named.type(), instance.get(), nullptr,
                               {named.type().handle, named.attribute().number}, &ops);
    for (; ops->iterNonnull(each); ops->iterInc(each)) {
        values.push_back(std::make_unique<AnyValue>(element));
        ops->iterObj(each, values.back()->get());
    }
    ops->iterDel(each);
    answer(options.json, values);
    return exitDone;
}

int get(const GenericOptions& given) {
    GenericOptions options = given;
    const Named named(options);
    const AttributeKind kind = named.attribute().kind;
    if (kind == AttributeKind::method || kind == AttributeKind::readOnlyMethod ||
        kind == AttributeKind::staticFunction) {
        throw UsageError(fmt::format("{} is called: rsvp-vesk call {} {}", options.attribute,
                                     options.type, options.attribute));
    }
    const Instance instance(named, options.arguments);
    if (instance.state() != TableState::complete) return codeOf(instance.state());
    if (options.arguments.size() > (kind == AttributeKind::table ? 1U : 0U)) {
        throw UsageError(fmt::format("too many arguments for {}", options.attribute));
    }
    if (kind == AttributeKind::table) {
        const int code = getTable(named, options, instance);
        return instance.code() == exitDone ? code : instance.code();
    }
    const TypeDescriptor& type = named.referred(named.attribute().type);
    if (kind == AttributeKind::reference) {
        Mox::Ptr<Mox::PtrInterface> reference;
        named.operate(&reference, instance.get(), named.attribute(), Mox::opRead);
        const std::string text = reference ? std::string(type.name) : "None";
        if (options.json) {
            print(std::cout, Json(text));
        } else {
            std::cout << text << '\n';
        }
        return exitDone;
    }
    AnyValue value(type);
    named.operate(value.get(), instance.get(), named.attribute(), Mox::opRead);
    answer(options.json, value);
    return exitDone;
}

int call(const GenericOptions& given) {
    GenericOptions options = given;
    const Named named(options);
    const AttributeDescriptor& attribute = named.attribute();
    if (attribute.kind != AttributeKind::method &&
        attribute.kind != AttributeKind::readOnlyMethod &&
        attribute.kind != AttributeKind::staticFunction) {
        throw UsageError(fmt::format("{} is read: rsvp-vesk get {} {}", options.attribute,
                                     options.type, options.attribute));
    }
    if (attribute.kind == AttributeKind::method) {
        throw UsageError(
            fmt::format("{} changes the tables, which is their writer's alone", options.attribute));
    }
    const Instance instance(named, options.arguments);
    if (instance.state() != TableState::complete) return codeOf(instance.state());
    const Arguments arguments(named, attribute.parameters, options.arguments);
    if (arguments.state() != TableState::complete) return codeOf(arguments.state());
    AnyValue result(named.referred(attribute.type));
    named.operate(result.get(), instance.get(), attribute, Mox::opCall, arguments.get());
    answer(options.json, result);
    return instance.code();
}

int guarded(int (*run)(const GenericOptions&), const GenericOptions& options) {
    try {
        return flushed(run(options));
    } catch (const UsageError& e) {
        complain(e.what());
    } catch (const Mox::RangeException& e) {
        complain(e.message());
    }
    return exitUsage;
}

} // namespace

int runGet(const GenericOptions& options) { return guarded(get, options); }

int runCall(const GenericOptions& options) { return guarded(call, options); }
