// MMSLaunch: starts the Morv Media Server and exits. No event loop runs;
// the exit status is 0 whatever happened (see launchMMS for what it does).

#include <QCoreApplication>

#include "LaunchMMS.h"

int main(int argc, char** argv) {
  QCoreApplication application(argc, argv);
  launchMMS();
  return 0;
}
