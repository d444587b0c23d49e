"""Random numbers that stay the same for ever, and the counts of what was meant."""

from capture.messages import (
    ACK, BUNDLE, HELLO, PATH, PATHERR, PATHTEAR, RESV, RESVCONF, RESVERR, RESVTEAR, SREFRESH)

FORMAT, OBJECTS, CHECKSUM, INTEGRITY = 5, 6, 7, 8
TYPE_NAMES = {
    0: "ERROR", PATH: "PATH", RESV: "RESV", PATHERR: "PATHERR", RESVERR: "RESVERR",
    PATHTEAR: "PATHTEAR", RESVTEAR: "RESVTEAR", RESVCONF: "RESVCONF", BUNDLE: "BUNDLE", ACK: "ACK",
    SREFRESH: "SREFRESH", HELLO: "HELLO",
}
ERROR_NAMES = {
    FORMAT: "invalidPktFormatErrorType",
    OBJECTS: "pktParserGenericFailureErrorType",
    CHECKSUM: "pktParserBadMsgChecksumErrorType",
    INTEGRITY: "pktParserIntegrityFailureErrorType",
}


class Random:
    """SplitMix64. The library's generator may change its sequences from version to version."""

    def __init__(self, seed):
        self.state = seed & 0xFFFFFFFFFFFFFFFF

    def bits64(self):
        self.state = (self.state + 0x9E3779B97F4A7C15) & 0xFFFFFFFFFFFFFFFF
        z = self.state
        z = ((z ^ (z >> 30)) * 0xBF58476D1CE4E5B9) & 0xFFFFFFFFFFFFFFFF
        z = ((z ^ (z >> 27)) * 0x94D049BB133111EB) & 0xFFFFFFFFFFFFFFFF
        return z ^ (z >> 31)

    def below(self, limit):
        return self.bits64() % limit

    def between(self, low, high):
        return low + (high - low) * (self.bits64() / 2**64)

    def pick(self, items):
        return items[self.below(len(items))]

    def octets(self, count):
        return bytes(self.below(256) for _ in range(count))


class Tally:
    """What was meant on one interface."""

    def __init__(self):
        self.frames = {"rsvp": 0, "ignored": 0, "cut": 0}
        self.messages = {}
        self.errors = {}

    def add(self, sent, family, meaning, times=1):
        direction = "tx" if sent else "rx"
        for type_number, error in meaning:
            key = (direction, f"ipv{family}", 0 if error else type_number)
            self.messages[key] = self.messages.get(key, 0) + times
            if error:
                key = (direction, error)
                self.errors[key] = self.errors.get(key, 0) + times


def report(tallies):
    """What the tool is to print for a capture; `tallies` has one Tally for each interface name."""
    frames = {"rsvp": 0, "ignored": 0, "cut": 0}
    errors = {}
    for tally in tallies.values():
        for outcome, count in tally.frames.items():
            frames[outcome] += count
        for key, count in tally.errors.items():
            errors[key] = errors.get(key, 0) + count
    return {
        "frames": sum(frames.values()),
        **frames,
        "messages": [
            {"interface": interface, "direction": direction, "family": family,
             "type": TYPE_NAMES[number], "typeNumber": number, "count": count}
            for interface, tally in sorted(tallies.items())
            for (direction, family, number), count in sorted(tally.messages.items())
        ],
        "errors": [
            {"direction": direction, "error": ERROR_NAMES[number], "errorNumber": number,
             "count": count}
            for (direction, number), count in sorted(errors.items())
        ],
    }
