#include <array>

#include "yinet/host/messages.h"

namespace yinet {

using namespace message;

// Host and script frame.
std::span<const MessageText> host_messages() {
  // clang-format off
  static constexpr auto kRows = std::to_array<MessageText>({
      {kScriptFunctionFailed, 6, "Die Skriptfunktion $1$ wurde durch einen internen Fehler beendet: $2$",
       "The script function $1$ was ended by an internal error: $2$",
       "Usually memory ran out. If it did not, report the text together with the call."},
      {kScriptClassUnknown, 6, "Die Skriptklasse $1$ oder ihre Funktion $2$ ist nicht bekannt.",
       "The script class $1$ or its function $2$ is not known.",
       "Register the function under these names before it is called, or correct the names."},
      {kScriptClassFailed, 6, "Die Funktion $2$ der Skriptklasse $1$ ist fehlgeschlagen: $3$",
       "The function $2$ of the script class $1$ failed: $3$",
       "The reason comes from the registered function; mend it there."},
      {kDriveNotMapped, 6, "Der Datei $1$ fehlt ein Verzeichnis f\xFCr ihren Laufwerksbuchstaben.",
       "There is no folder for the drive letter of the file $1$.",
       "Set \"Dateien\"/\"LaufwerkC\" (or the letter in question) to the folder that the drive stands for."},
      {kTemporaryFolderUnusable, 6, "Das tempor\xE4re Verzeichnis $1$ ist nicht benutzbar: $2$. Ersatz: \"$3$\"",
       "The temporary folder $1$ cannot be used: $2$. In its place: \"$3$\"",
       "Remove what stands in its place, or name a folder of your own in \"Dateien\"/\"TempVerzeichnis\"."},
      {kFileNameRefused, 6,
       "Der Dateiname $1$ enth\xE4lt ein Nullzeichen oder f\xFChrt aus dem tempor\xE4ren Verzeichnis heraus und "
       "wird nicht benutzt.",
       "The file name $1$ holds a NUL character or leads out of the temporary folder, and is not used.",
       "Correct the name where it is made; it may come from outside."},
      {kSettingsFileFailed, 6, "Die Einstellungsdatei $1$ wird nicht benutzt: $2$",
       "The settings file $1$ is not used: $2$",
       "Correct the line, or the path in the environment variable YINET_SETTINGS."},
      {kSettingMisfit, 6, "Der Wert \"$2$\" passt nicht zur Einstellung $1$; es gilt \"$3$\".",
       "The value \"$2$\" does not fit the setting $1$; \"$3$\" holds.",
       "Flags are 0 or 1, numbers decimal and not below 0; \";\" behind a value begins no comment."},
      {kSettingUnknown, 5, "Die Einstellung $1$ gibt es nicht; ist $2$ gemeint?",
       "There is no setting $1$; is $2$ meant?", "Correct the name; \"yinet settings\" lists all."},
  });
  // clang-format on
  return kRows;
}

}  // namespace yinet
