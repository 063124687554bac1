// What the ranks of a run must share: the program and the working folder. Each reads its own rows of the sensitivity
// files, so that another folder would mix the rows of two surveys without a sign of it.
#pragma once

namespace voxlith {

// All ranks call it before the run. Throws RunError in a rank whose program has other bytes than that of the first, or
// that does not see a file which the first one puts into its working folder for a moment. Where that cannot write,
// folders are not compared.
void requireSameSetup();

}  // namespace voxlith
