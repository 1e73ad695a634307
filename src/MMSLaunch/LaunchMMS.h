// launchMMS: finds the Morv Media Server's executable and starts it.

#ifndef MMSLAUNCH_LAUNCHMMS_H
#define MMSLAUNCH_LAUNCHMMS_H

// Finds the server's executable: first the bundle path
// "MorvMediaServer.app/Contents/MacOS/MorvMediaServer", relative to the
// current folder; else the "InstallPath" value of the installer's record of
// "MorvMediaServer" in the settings store, taken as the executable's full
// path. Announces it on the debug stream, then starts it detached, with no
// arguments and the launcher's working folder. Needs a QCoreApplication.
//
// Returns 0 when no executable was found (nothing printed, nothing
// started), 1 when the start failed (after the announcement), 2 when the
// server was started.
int launchMMS();

#endif  // MMSLAUNCH_LAUNCHMMS_H
