// Writes seeds of frameFuzz: some frames of each capture, alone and in a row.
//
//   frameSeeds FOLDER CAPTURE...

#include "packets/CaptureFile.h"

#include <fstream>
#include <iostream>
#include <map>
#include <string>

int main(int argc, char** argv) {
    const std::string folder = argv[1];
    std::size_t written = 0;
    for (int i = 2; i < argc; ++i) {
        Packets::CaptureFile capture(argv[i]);
        Packets::CaptureRecord record;
        std::map<Packets::LinkType, std::string> rows; // of frames, by link type
        std::size_t number = 0;
        while (capture.next(record)) {
            constexpr std::size_t kEvery = 7;
            constexpr std::size_t kLongestRow = 6000;
            const auto type = static_cast<char>(record.linkType);
            const std::size_t size = record.frame.captured.size();
            std::string frame = {static_cast<char>(size >> 8U), static_cast<char>(size), 0};
            frame.append(record.frame.captured.begin(), record.frame.captured.end());
            std::string& row = rows[record.linkType];
            if (row.size() < kLongestRow) row += frame;
            if (number++ % kEvery != 0) continue;
            std::ofstream(folder + "/frame" + std::to_string(written++)) << type << frame;
        }
        for (const auto& [type, row] : rows) {
            std::ofstream(folder + "/row" + std::to_string(written++))
                << static_cast<char>(type) << row;
        }
    }
    std::cout << written << " seeds\n";
    return written == 0 ? 1 : 0;
}
