#pragma once

#include "packets/CaptureFile.h"

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace Packets {

struct FileCloser {
    void operator()(std::FILE* file) const noexcept { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

/// Reads pcapng (draft-ietf-opsawg-pcapng): any number of sections, in either byte order, each with
/// interfaces of its own; Enhanced, Simple and (obsolete) Packet Blocks. Other blocks are skipped.
///
/// A block that contradicts itself ends the reading, because nobody knows where the next begins.
/// Memory is bounded by the largest block that is taken, 16 MiB, and by 65536 interfaces.
class PcapngReader final : public RecordReader {
  public:
    static constexpr std::uint32_t sectionHeader = 0x0A0D0D0A; ///< how a file begins

    /// Reads the header of the first section. Throws an InputError with the reason when
    /// it is none.
    explicit PcapngReader(File file);

    [[nodiscard]] bool next(CaptureRecord& record) override;
    [[nodiscard]] std::string interfaceName(std::uint32_t interface) const override;
    [[nodiscard]] std::uint32_t linkTypeNumber(std::uint32_t interface) const override;

  private:
    /// Time stamps count units of 10^-exponent or 2^-exponent seconds.
    struct Interface {
        std::string name;
        std::uint16_t linkTypeNumber = 0;
        LinkType linkType = LinkType::unknown;
        std::uint32_t snapLength = 0; ///< 0 for none
        bool binary = false;
        unsigned exponent = 6;
        std::int64_t offset = 0; ///< seconds
    };

    [[nodiscard]] bool readBlock();
    void readExactly(std::size_t at, std::size_t octets, const char* what);
    [[nodiscard]] std::uint16_t word16(const std::uint8_t* octets) const noexcept;
    [[nodiscard]] std::uint32_t word32(const std::uint8_t* octets) const noexcept;
    template <class Visit>
    void forEachOption(Bytes options, Visit visit) const;
    void describeInterface(Bytes body);
    void enhancedPacket(Bytes body, bool obsolete, CaptureRecord& record);
    void simplePacket(Bytes body, CaptureRecord& record);
    [[nodiscard]] const Interface& interfaceOf(std::uint32_t inSection,
                                               CaptureRecord& record) const;

    File file_;
    bool bigEndian_ = false;
    std::uint32_t type_ = 0;          // of the block that was read
    std::vector<std::uint8_t> block_; // its octets, from its type on
    std::vector<Interface> interfaces_;
    std::size_t firstOfSection_ = 0; // in interfaces_
    std::int64_t lastTimestamp_ = 0;
};

} // namespace Packets
