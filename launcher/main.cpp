// OruLauncher: started by the updater's installer after the updater replaced
// itself. Reads no command line and always exits 0; see handover.h.
#include "launcher/handover.h"

int main() {
  return RunHandOver();
}
