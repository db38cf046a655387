// Taps on a few platform calls. The bench executable exports its own definitions of them, so
// they take the place of the platform's for the library and the platform alike (as LD_PRELOAD
// would); each forwards to the platform's own unless a benchmark asks otherwise.
#pragma once

namespace bench {

// SIGHUPs sent so far: the platform's nginx control reloads nginx with one.
int nginxReloadSignals();

// While on, the status refresh of the port list is answered at once: every port probe says
// "nginx listens here" and the nginx control reports no processes to look through.
void setInstantPortProbes(bool on);

}  // namespace bench
