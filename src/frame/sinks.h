#pragma once
// What a long operation shows and asks. The engine never talks to a window:
// labels, steps, the title and the log panel go through ProgressSink, every
// question goes through Prompt. The GUI implements both with widgets, the
// headless front end with the terminal, tests with scripted fakes.
//
// Threads: a long operation runs on one worker thread, and that thread is the
// only caller of a ProgressSink and of a Prompt it is given. A window does not
// draw from these calls: it hands the worker a ProgressSnapshot
// (progress_snapshot.h) and polls that about once a second, and its Prompt
// blocks the worker while the interface thread shows the question.

#include <optional>
#include <string>
#include <string_view>

namespace kelvor {

// The text labels of the progress panel, named after the window's controls.
enum class Label {
  Step,             // lblStep
  SourceNr,         // lblSourceNr
  AktuellerOrdner,  // lblAktuellerOrdner
  Dauer,            // lblDauer
  Gesamt,           // lblGesamt
  GesamtArchive,    // lblGesamtArchive
  Dups,             // lblDups
  Gruppen,          // lblGruppen
  Vergleiche,       // lblVergleiche
  ChecksumCreated,  // lblChecksumCreated
  Archive,          // lblArchive
  FilesExtracted,   // lblFilesExtracted
  FilterFiles,      // lblFilterFiles
  FilterFolder,     // lblFilterFolder
  Suchmethode,      // lblSuchmethode
  Zipdatei,         // lblZipdatei
  ZipProgress,      // lblZipProgress
  StatusBar,        // status bar panel 1
  Title,            // window title
  StopButtonPause,  // caption of stop button 1 ("Anhalten"/"Fortsetzen")
};
inline constexpr int kLabelCount = static_cast<int>(Label::StopButtonPause) + 1;

class ProgressSink {
 public:
  virtual ~ProgressSink() = default;
  virtual void SetLabel(Label, std::string_view) {}
  virtual void ProgressBar(int /*percent*/) {}
  // A line for the live log panel (rtfLog).
  virtual void LogPanel(std::string_view /*line*/) {}
};

enum class MessageIcon { Information, Exclamation, Critical, Question };

class Prompt {
 public:
  virtual ~Prompt() = default;
  virtual void Message(std::string_view text, MessageIcon icon) = 0;
  virtual bool AskYesNo(std::string_view text) = 0;
  // An input box; nullopt when cancelled.
  virtual std::optional<std::string> Input(std::string_view prompt, std::string_view deflt) = 0;
  // A Yes/No question with a box to tick "do not show this again" (the
  // window words the box). *stopAsking tells whether it was ticked; a prompt
  // without such a box asks plainly and leaves it unticked.
  virtual bool AskYesNoStopAsking(std::string_view text, bool* stopAsking) {
    *stopAsking = false;
    return AskYesNo(text);
  }
};

// A sink that shows nothing, for callers that do not care.
class NullProgressSink final : public ProgressSink {};

}  // namespace kelvor
