#pragma once

#include "packets/FrameDecoder.h"

#include <cstdlib>

namespace Fuzz {

/// A sink that holds the decoder to its word. Breaking it aborts, which is a finding.
class Checked {
  public:
    void packet(const Packets::FrameSource& source) {
        expect(!packet_ && source.address != nullptr);
        packet_ = true;
    }
    void verdict(const Packets::Verdict& verdict) {
        expect(packet_);
        ++verdicts_;
        if (verdict.defect != Packets::Defect::none) ++defects_;
    }
    void outcomeIs(Packets::Outcome outcome) {
        using enum Packets::Outcome;
        expect((outcome == accepted) == (verdicts_ > 0 && defects_ == 0));
        expect((outcome == erroneous) == (defects_ > 0));
        expect(packet_ == (outcome == accepted || outcome == erroneous));
        *this = Checked();
    }

  private:
    static void expect(bool holds) {
        if (!holds) std::abort();
    }

    bool packet_ = false;
    unsigned verdicts_ = 0;
    unsigned defects_ = 0;
};

inline const Packets::IntegrityKeys& keys() {
    static const Packets::IntegrityKeys instance = [] {
        Packets::IntegrityKeys made;
        made.add("a1=many-links-key");
        made.add("1=two-links");
        return made;
    }();
    return instance;
}

} // namespace Fuzz
