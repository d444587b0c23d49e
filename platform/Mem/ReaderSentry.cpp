#include "Mem/ReaderSentry.h"

namespace Mem {

void ReaderSentry::mountAttempt(const Pello::String& event, bool /*force*/) {
    PELLO_TRACE(*this, 5, Pello::SourceTag("ReaderSentry", "Mem/ReaderSentry", "mountAttempt"),
                "{} event:{} mode:{} enabled:{}", rootPath_, event, notifiee_.modeStr(), enabled_);
}

} // namespace Mem
