// What the program shows before it does anything: the banner, and the usage text when it is started without arguments.
#pragma once

namespace voxlith {

void showBanner();
void showUsage();

}  // namespace voxlith
