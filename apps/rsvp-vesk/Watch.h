#pragma once

/// `rsvp-vesk watch`: a live view of what the tables count, on the whole terminal, until q, SIGTERM
/// or SIGINT. Looks again every `interval` seconds. Returns the exit code: 0 done, 2 no terminal.
int runWatch(double interval);
