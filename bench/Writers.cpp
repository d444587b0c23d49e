#include "Writers.h"

#include "Rsvp/CounterTables.h"
#include "Vesk/VeskWriter.h"

namespace Bench {

template <class Ops>
std::unique_ptr<Table<Ops>> openTable(const std::string& name, std::uint32_t size) {
    auto writer = std::make_unique<Vesk::VeskWriter<Ops>>(
        Pello::Platform::getDebugHandler("bench." + name, false), name,
        Vesk::MapDescriptor(size, Vesk::VeskType::writer), Ops(), "Bench", [](bool) {});
    writer->initialize("bench");
    return writer;
}

template std::unique_ptr<Table<TestSupport::MessageShape::Ops>>
openTable<TestSupport::MessageShape::Ops>(const std::string&, std::uint32_t);
template std::unique_ptr<Table<TestSupport::SpShape::Ops>>
openTable<TestSupport::SpShape::Ops>(const std::string&, std::uint32_t);
template std::unique_ptr<Table<LocalShape<true>::Ops>>
openTable<LocalShape<true>::Ops>(const std::string&, std::uint32_t);
template std::unique_ptr<Table<LocalShape<false>::Ops>>
openTable<LocalShape<false>::Ops>(const std::string&, std::uint32_t);

} // namespace Bench
