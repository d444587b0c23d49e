"""Datagrams in fragments: which of them a receiver can put together, and which it must not."""

import struct

from capture.messages import ACK, BUNDLE, HELLO, PATH, RESV, obj, rsvp
from capture.network import (
    ALERT_V4, ALERT_V6, ATOMIC_FRAGMENT_V6, DESTINATION_V6, ROUTING_V6, fragments, ipv6)
from capture.tally import CHECKSUM

ETHER_TYPE = {4: 0x0800, 6: 0x86DD}
STEP = 0.004  # seconds between fragments


class Sender:
    """Sends fragments over one link in one direction and family. Identifications are never used
    twice between the same addresses, but where a scene is about just that."""

    def __init__(self, story, capture, link, sent, family, tunnel, ident):
        self.story, self.capture, self.link = story, capture, link
        self.sent, self.family, self.tunnel, self.ident = sent, family, tunnel, ident
        self.ends = (link.address[sent, family], link.address[not sent, family])
        self.other_ends = (tunnel.sender, self.ends[1])
        self.alert = {"options": ALERT_V4} if family == 4 else {"extensions": [ALERT_V6]}

    def message(self, kind=PATH, **how):
        return rsvp(kind, self.tunnel.objects(kind, self.ends[0]), **how)

    def cut(self, payload, *cuts, ends=None, ident=None, **how):
        if ident is None:
            self.ident += 1
            ident = self.ident
        return fragments(self.family, *(ends or self.ends), payload, cuts, ident, **how)

    def send(self, time, pieces, *meaning, completes=None, step=STEP, keep=None):
        """`completes` is the place in `pieces` of the fragment that makes the datagram whole.
        `keep` cuts the first piece."""
        shims = self.capture.rng.pick(self.link.styles)
        for place, piece in enumerate(pieces):
            meant = meaning if place == completes else None
            cut = {"keep": keep, "outcome": "cut"} if keep is not None and place == 0 else {}
            self.story.at(time + place * step, lambda now, piece=piece, meant=meant, cut=cut:
                          self.capture.frame(now, self.link, self.sent, ETHER_TYPE[self.family],
                                             piece, meant, self.family, shims=shims, **cut))


def play(sender, rng, begin, end):
    """Schedules every scene once, at random times from `begin` to `end` seconds."""
    path, resv, tunnel = sender.message(), sender.message(RESV), sender.tunnel
    hello = rsvp(HELLO, obj(22, 1, rng.octets(8)))
    acks = [obj(24, 1, struct.pack("!II", 0x2A, number)) for number in range(9)]
    wrong = sender.message(RESV, checksum_is="wrong")
    bundle = rsvp(BUNDLE, hello, resv, path)
    fine, fine_resv = (PATH, None), (RESV, None)
    bundled = ((BUNDLE, None), (HELLO, None), fine_resv, fine)

    def when():
        return rng.between(begin, end)

    # Whole in the end: in order, reversed, the last before the middle, two pieces of 8 octets.
    a, b, c = sender.cut(path, 64, 128, **sender.alert)
    sender.send(when(), [a, b, c], fine, completes=2)
    a, b, c = sender.cut(resv, 48, 96)
    sender.send(when(), [c, b, a], fine_resv, completes=2)
    a, b, c = sender.cut(path, 8, 16)
    sender.send(when(), [a, c, b], fine, completes=2)
    a, b, c, d = sender.cut(bundle, 160, 240, 320)
    sender.send(when(), [d, a, c, b], *bundled, completes=3)
    a, b = sender.cut(wrong, 80)
    sender.send(when(), [a, b], (RESV, CHECKSUM), completes=1)
    a, b = sender.cut(path, 112)
    sender.send(when(), [b, a], fine, completes=1, step=59.0)

    # Never whole: the first, the last or one between is missing; a fragment is cut by the capture;
    # the rest comes when the first is forgotten.
    a, b, c = sender.cut(path, 64, 128)
    sender.send(when(), [b, c])
    a, b, c = sender.cut(path, 64, 128)
    sender.send(when(), [a, b])
    a, b, c = sender.cut(path, 64, 128)
    sender.send(when(), [c, a])
    a, b = sender.cut(resv, 64)
    sender.send(when(), [a, b], keep=60)
    a, b = sender.cut(resv, 64)
    sender.send(when(), [a, b], step=61.0)
    if sender.family == 4:
        a, b = sender.cut(rsvp(HELLO, rng.octets(80)), 64, protocol=17)  # no RSVP after all
        sender.send(when(), [a, b])

    # Two at a time: with two identifications, and with one between different addresses.
    a, b, c = sender.cut(path, 64, 128)
    d, e, f = sender.cut(resv, 72, 112)
    start = when()
    sender.send(start, [a, c, b], fine, completes=2)
    sender.send(start + STEP / 2, [d, e, f], fine_resv, completes=2)
    a, b = sender.cut(rsvp(ACK, *acks), 64)
    d, e = sender.cut(rsvp(ACK, *acks, checksum_is="wrong"), 64, ends=sender.other_ends,
                      ident=sender.ident)
    start = when()
    sender.send(start, [a, b], (ACK, None), completes=1)
    sender.send(start + STEP / 2, [d, e], (ACK, CHECKSUM), completes=1)

    # An identification that comes back: what is left of the older datagram has expired.
    old, _ = sender.cut(resv, 64)
    a, b = sender.cut(path, 64, ident=sender.ident)
    start = rng.between(begin, end - 70)
    sender.send(start, [old])
    sender.send(start + 65, [b, a], fine, completes=1)

    if sender.family == 4:
        # Duplicates, before and after the datagram is whole.
        a, b, c = sender.cut(path, 64, 128)
        sender.send(when(), [a, a, b, c, c], fine, completes=3)
        a, b, c = sender.cut(path, 64, 128)
        sender.send(when(), [c, b, c, b, a], fine, completes=4)
        return

    # RFC 5722: a datagram with overlapping fragments is dropped, with those that come later.
    a, b, c = sender.cut(path, 64, 128)
    _, overlap, _ = sender.cut(path, 56, 128, ident=sender.ident)
    sender.send(when(), [a, overlap, c])
    a, b, c = sender.cut(path, 64, 128)
    _, overlap, _ = sender.cut(path, 64, 136, ident=sender.ident)
    sender.send(when(), [c, overlap, a])

    # Headers in every fragment (before the fragment header) and in the fragmented part.
    a, b, c = sender.cut(path, 64, 128, extensions=[ALERT_V6, ROUTING_V6])
    sender.send(when(), [b, a, c], fine, completes=2)
    options = bytes([46]) + DESTINATION_V6[1]
    a, b = sender.cut(options + resv, 64, protocol=DESTINATION_V6[0])
    sender.send(when(), [a, b], fine_resv, completes=1)
    atomic = ipv6(*sender.ends, 46, path, extensions=[ALERT_V6, ATOMIC_FRAGMENT_V6])
    sender.send(when(), [atomic], fine, completes=0)
