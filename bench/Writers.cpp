#include "Writers.h"

#include "Rsvp/Tables.h"
#include "Vesk/VeskReader.h"
#include "Vesk/VeskWriter.h"

#include <stdexcept>

namespace Bench {

template <class Ops>
std::unique_ptr<Table<Ops>> openTable(const std::string& name,
                                      const Vesk::MapDescriptor& descriptor) {
    auto writer = std::make_unique<Vesk::VeskWriter<Ops>>(
        Pello::Platform::getDebugHandler("bench." + name, false), name, descriptor, Ops(), "Bench",
        [](bool) {});
    writer->initialize("bench");
    return writer;
}

template <class Ops>
std::unique_ptr<Table<Ops>> openReader(const std::string& name) {
    auto reader = std::make_unique<Vesk::VeskReader<Ops>>(
        Pello::Platform::getDebugHandler("bench." + name, false), name, Ops(), nullptr);
    if (!reader->initialize("bench")) throw std::runtime_error("cannot read table " + name);
    return reader;
}

#define BENCH_TABLE(Ops)                                                                           \
    template std::unique_ptr<Table<Ops>> openTable<Ops>(const std::string&,                        \
                                                        const Vesk::MapDescriptor&);               \
    template std::unique_ptr<Table<Ops>> openReader<Ops>(const std::string&);
BENCH_TABLE(TestSupport::MessageShape::Ops)
BENCH_TABLE(TestSupport::SpShape::Ops)
BENCH_TABLE(LocalShape<true>::Ops)
BENCH_TABLE(LocalShape<false>::Ops)
#undef BENCH_TABLE

} // namespace Bench
