// Writes the text of each registered type's default value, for textFuzz.
//
//   textSeeds FOLDER

#include "Texts.h"

#include <fstream>

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    const auto& types = Fuzz::readableTypes();
    for (std::size_t i = 0; i < types.size(); ++i) {
        std::ofstream out(std::string(argv[1]) + "/type" + std::to_string(i), std::ios::binary);
        out << static_cast<char>(i) << Mox::AnyValue(*types[i]).text();
        if (!out.flush()) return 1;
    }
    return 0;
}
