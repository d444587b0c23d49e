#pragma once

/// The tool's exit codes.
enum ExitCode : int {
    exitDone = 0,
    exitFailed = 1,
    exitUsage = 2,
    exitNoTable = 3,
    exitCorrupt = 4
};
