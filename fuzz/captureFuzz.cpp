// Any octets as a capture file, read to its end or to the error that it deserves.

#include "Checked.h"

#include "packets/InputError.h"

#include <fcntl.h>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const int file = memfd_create("capture", 0);
    static const std::string path = "/proc/self/fd/" + std::to_string(file);
    if (ftruncate(file, 0) != 0 || pwrite(file, data, size, 0) != static_cast<ssize_t>(size)) {
        std::abort();
    }
    try {
        Packets::CaptureFile capture(path);
        Packets::FrameDecoder decoder(Fuzz::keys());
        Fuzz::Checked sink;
        Packets::CaptureRecord record;
        while (capture.next(record)) {
            static_cast<void>(capture.interfaceName(record.interface));
            sink.outcomeIs(decoder.decode(record, sink));
        }
        if (capture.next(record)) std::abort(); // the end stays the end
    } catch (const Packets::InputError&) {
        // what a garbled file deserves
    }
    return 0;
}
