// launchMMS: finds the Morv Media Server's executable and starts it.

#include "LaunchMMS.h"

#include <QCoreApplication>
#include <QDebug>
#include <QFile>
#include <QLatin1String>
#include <QProcess>
#include <QString>
#include <QStringList>

#include <string>

#include "MorvSettings/MorvSettingsSimple.h"

namespace {

// A string value as the announcement shows it: between double quotes,
// unchanged.
QString Quoted(const QString& text) { return QLatin1Char('"') + text + QLatin1Char('"'); }

// The argument list as the announcement shows it: "(" and the items in
// quotes, separated by ", ", then ")". (Qt 6 would write "QList(...)".)
QString ListText(const QStringList& list) {
  QStringList quoted;
  for (const QString& item : list) quoted << Quoted(item);
  return QLatin1Char('(') + quoted.join(QLatin1String(", ")) + QLatin1Char(')');
}

}  // namespace

int launchMMS() {
  std::wstring installPath;
  QString executable;

  // The bundle path, relative to the current folder, comes first; the
  // settings store is not consulted when it exists.
  const QString bundle = QString::fromLatin1("MorvMediaServer.app/Contents/MacOS/MorvMediaServer");
  if (QFile::exists(bundle)) {
    executable = bundle;
  } else {
    if (!mvcs::FetchInstallerWideString(std::wstring(L"MorvMediaServer"),
                                        std::wstring(L"InstallPath"), installPath)) {
      return 0;
    }
    // The whole value is the executable's path, as it stands.
    executable =
        QString::fromWCharArray(installPath.data(), static_cast<qsizetype>(installPath.size()));
    if (!QFile::exists(executable)) return 0;
  }

  // The server gets none of the launcher's arguments: the list is fetched,
  // then cleared (and still announced).
  QStringList arguments = QCoreApplication::arguments();
  arguments.clear();

  // Plain text items as they stand, the path between double quotes exactly
  // as it is (Qt 6 would escape quotes, backslashes and other characters
  // inside them), then the list.
  qDebug().noquote() << "Lauching Morv Media Server:" << Quoted(executable)
                     << "with arguments:" << ListText(arguments);

  return QProcess::startDetached(executable, arguments) ? 2 : 1;
}
