"""The lives of tunnels: which messages a router sends and receives for them, and when."""

import heapq
import itertools
import struct

from capture.messages import (
    ACK, BUNDLE, END_TO_END, HELLO, MTU, PATH, PATHERR, PATHTEAR, REFRESH, RESV, RESVCONF, RESVERR,
    RESVTEAR, SREFRESH, obj, rsvp)

class Story:
    """Events in the order of time. Each link and direction keeps its own refresh state.

    A link has `name`, `reduction` (of refreshes, RFC 2961) and `address[sent, family]`."""

    def __init__(self, rng, capture, duration):
        self.rng, self.capture, self.duration = rng, capture, duration
        self.events, self.order = [], itertools.count()
        self.batches = {}  # messages that wait for a bundle, by (link name, sent, family)
        self.identifiers = itertools.count(1)
        self.refreshed = {}  # MESSAGE_ID numbers for SREFRESH, by (link name, sent, family)

    def at(self, time, action):
        heapq.heappush(self.events, (time, next(self.order), action))

    def run(self):
        while self.events:
            time, _, action = heapq.heappop(self.events)
            if time < self.duration:
                action(time)

    def send(self, time, tunnel, type_number, link, sent, error=(0, 0)):
        """One message of a tunnel over a link; with refresh reduction it may travel in a bundle."""
        objects = tunnel.objects(type_number, link.address[sent, tunnel.family], error)
        if not link.reduction:
            ends = (tunnel.sender, tunnel.end) if type_number in END_TO_END else None
            self.capture.rsvp(time, link, sent, tunnel.family, rsvp(type_number, objects),
                              [(type_number, None)], ends, alert=type_number in END_TO_END)
            return
        key = (link.name, sent, tunnel.family)
        number = next(self.identifiers)
        if type_number in (PATH, RESV):
            self.refreshed.setdefault(key, {})[tunnel.number, type_number] = number
        if type_number in (PATHTEAR, RESVTEAR):
            self.refreshed.get(key, {}).pop((tunnel.number, type_number - 4), None)
        if type_number == PATHTEAR:  # the reservation, refreshed the other way, goes with the path
            back = (link.name, not sent, tunnel.family)
            self.refreshed.get(back, {}).pop((tunnel.number, RESV), None)
        message_id = obj(23, 1, struct.pack("!II", 0x01_00_00_2A, number))  # ACK_Desired, epoch 42
        batch = self.batches.setdefault(key, [])
        if not batch:
            self.at(time + 0.05, lambda now: self.flush(now, link, sent, tunnel.family))
        batch.append((type_number, rsvp(type_number, message_id, objects), number))

    def flush(self, time, link, sent, family):
        waiting = self.batches.pop((link.name, sent, family))
        while waiting:
            bundle, room = [], MTU - 40 - 8
            while waiting and len(waiting[0][1]) <= room:
                room -= len(waiting[0][1])
                bundle.append(waiting.pop(0))
            meaning = [(type_number, None) for type_number, _, _ in bundle]
            payload = bundle[0][1]
            if len(bundle) > 1:
                payload = rsvp(BUNDLE, *(message for _, message, _ in bundle))
                meaning.insert(0, (BUNDLE, None))
            self.capture.rsvp(time, link, sent, family, payload, meaning)
            acks = [obj(24, 1, struct.pack("!II", 0x2A, number)) for _, _, number in bundle]
            self.at(time + self.rng.between(0.01, 0.04),
                    lambda now, acks=acks: self.capture.rsvp(
                        now, link, not sent, family, rsvp(ACK, *acks), [(ACK, None)]))

    def refresh(self, tunnel, type_number, link, sent, until):
        """Sends soft state again and again, at the intervals of RFC 2205, section 3.7."""

        def again(time):
            if time < until:
                self.send(time, tunnel, type_number, link, sent)
                self.at(time + REFRESH * self.rng.between(0.5, 1.5), again)

        return again

    def summary_refresh(self, link, sent, family):
        def again(time):
            numbers = list(self.refreshed.get((link.name, sent, family), {}).values())
            if numbers:
                listing = struct.pack(f"!I{len(numbers)}I", 0x2A, *numbers)
                self.capture.rsvp(time, link, sent, family, rsvp(SREFRESH, obj(25, 1, listing)),
                                  [(SREFRESH, None)])
            self.at(time + REFRESH * self.rng.between(0.5, 1.5), again)

        return again

    def hello(self, link, sent, family, interval):
        mine, theirs = self.rng.below(2**32), self.rng.below(2**32)

        def again(time):
            request = rsvp(HELLO, obj(22, 1, struct.pack("!II", mine, theirs)), ttl=1)
            answer = rsvp(HELLO, obj(22, 2, struct.pack("!II", theirs, mine)), ttl=1)
            self.capture.rsvp(time, link, sent, family, request, [(HELLO, None)])
            self.at(time + self.rng.between(0.001, 0.005), lambda now: self.capture.rsvp(
                now, link, not sent, family, answer, [(HELLO, None)]))
            self.at(time + interval, again)

        return again

    def tunnel(self, tunnel, begin, end):
        """From the first PATH to the tear. A link behind us answers; one before us asks."""
        up, down = tunnel.upstream, tunnel.downstream
        fate = self.rng.below(8)
        towards_end = [(link, sent) for link, sent in ((up, False), (down, True)) if link]
        towards_sender = [(link, sent) for link, sent in ((down, False), (up, True)) if link]

        def pass_on(time, type_number, route, refreshing=False, error=(0, 0)):
            for delay, (link, sent) in enumerate(route):
                keeps = refreshing and not link.reduction
                self.at(time + 0.015 * delay, self.refresh(tunnel, type_number, link, sent, end)
                        if keeps else lambda now, link=link, sent=sent: self.send(
                            now, tunnel, type_number, link, sent, error))

        if fate == 0:  # no route to the end point: an error instead of a reservation
            pass_on(begin, PATH, towards_end)
            pass_on(begin + 0.08, PATHERR, towards_sender, error=(24, 5))
            pass_on(begin + 0.5, PATHTEAR, towards_end)
            return
        pass_on(begin, PATH, towards_end, refreshing=True)
        if fate == 1:  # a first reservation is too large for the link
            pass_on(begin + 0.08, RESV, towards_sender[:1])
            pass_on(begin + 0.10, RESVERR, [(link, not sent) for link, sent in towards_sender[:1]],
                    error=(1, 2))
        pass_on(begin + 0.2, RESV, towards_sender, refreshing=True)
        if tunnel.confirms:
            pass_on(begin + 0.3, RESVCONF, towards_end)
        if fate == 2:  # repaired locally on the way
            pass_on(self.rng.between(begin, end), PATHERR, towards_sender, error=(25, 3))
        if fate in (3, 4):
            pass_on(end, RESVTEAR, towards_sender)
        pass_on(end + 0.05, PATHTEAR, towards_end)
