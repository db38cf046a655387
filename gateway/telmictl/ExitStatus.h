// telmictl's exit statuses, documented in docs/telmictl.md; scripts rely on them.
#pragma once

namespace telmictl {

enum ExitStatus : int {
    kExitDone = 0,
    kExitRefused = 1,      // the gateway refused the request, or at least one item of a batch failed
    kExitUsage = 2,        // a wrong command line
    kExitUnreachable = 3,  // no answer from the management API, or one that is not its JSON
    kExitAdmin = 4,        // no admin password could be read, or the gateway did not accept it
};

}  // namespace telmictl
