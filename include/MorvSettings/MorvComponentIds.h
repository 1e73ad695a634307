// The product ids of Morv's components, as the settings store uses them:
// the second component of "Settings/<id>" and "Install/<id>" paths, and the
// <id> of each product's per-user file "com.morv.<id>.plist". Narrow (UTF-8)
// and wide forms.

#ifndef MORVSETTINGS_MORVCOMPONENTIDS_H
#define MORVSETTINGS_MORVCOMPONENTIDS_H

namespace mvcs {

// The Morv Media Server; its installer records "InstallPath", the full path
// of the server's executable, which the launcher (MMSLaunch) starts.
constexpr char kMorvMediaServerId[] = "MorvMediaServer";
constexpr wchar_t kMorvMediaServerIdW[] = L"MorvMediaServer";

}  // namespace mvcs

#endif  // MORVSETTINGS_MORVCOMPONENTIDS_H
