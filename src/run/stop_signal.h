// SIGINT, SIGTERM and SIGUSR1: a run ends after the iteration that is under way, or gives up an iteration that can take
// minutes, and its exit status tells the signal. A second signal ends it at once.
#pragma once

namespace voxlith {

// Until keepIterations is called a signal ends the process at once, with status 128 + signal: nothing is lost then.
void watchSignals();

// From now on the first signal is only recorded.
void keepIterations();

// The signal that any rank has recorded; 0 for none. All ranks call it.
int signalOfRanks();

}  // namespace voxlith
