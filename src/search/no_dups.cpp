// Files without duplicates: the records that met no partner during the walk.

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "frame/error_text.h"
#include "frame/formats.h"
#include "frame/log.h"
#include "frame/long_operation.h"
#include "frame/texts.h"
#include "frame/unicode.h"
#include "search/cascade.h"
#include "search/engine.h"

namespace kelvor {

void SearchEngine::Search_ShowOnlyFilesWithoutDups() {
  ProgressSink& p = ctx_.progress;
  p.ProgressBar(0);
  for (Label l : {Label::SourceNr, Label::Gesamt, Label::AktuellerOrdner}) p.SetLabel(l, "-");
  int group = result_->BeginFilesWithoutDupsGroup();
  stats_.GroupCount = result_->GroupsCreated();
  const CStringCollection2& files = cascade_->Files();
  const int count = files.Count();
  int i = 1;
  const std::function<void()> refresh = [&] {
    p.SetLabel(Label::Dauer, FormatElapsed(static_cast<long long>(ElapsedNow())));
    p.ProgressBar(static_cast<int>(100.0 / count * i));
    p.SetLabel(Label::Gesamt, FormatNumber(i) + " / " + FormatNumber(count));
  };
  std::unique_ptr<LongOperation> pacing = MakePacing(kCountRefresh);
  for (; i <= count; ++i) {
    if (files.GroupID(i) == -1) result_->AddFileRow(group, files.Record(i));
    if (!pacing->Step(refresh)) break;
  }
  result_->FinishFilesWithoutDupsGroup(group);
  stats_.DupCount = result_->DupCount();
  stats_.DupSize = result_->FilesizeAll();
}

bool SearchEngine::Search_LogFilesWithoutDups(std::string* error) {
  error->clear();
  ProgressSink& p = ctx_.progress;
  for (Label l : {Label::Gesamt, Label::SourceNr, Label::AktuellerOrdner}) p.SetLabel(l, "-");
  const CStringCollection2& files = cascade_->Files();
  const int count = files.Count();
  const auto& target = ctx_.log.GeneralLog();
  int fd = ::open(target.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
  if (fd < 0) {
    *error = std::string("CreateFileWide: ") + ErrorText(errno);
    return false;
  }
  auto write = [&](const std::string& text, const char* label) {
    std::string bytes = Utf8ToUtf16le(LogTimeStamp() + " - " + text + "\r\n");
    if (::write(fd, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) {
      *error = std::string(label) + ErrorText(errno);
      return false;
    }
    return true;
  };
  bool headed = false;
  int i = 1;
  const std::function<void()> refresh = [&] {
    p.SetLabel(Label::Dauer, FormatElapsed(static_cast<long long>(ElapsedNow())));
    p.SetLabel(Label::Gesamt, std::to_string(i) + " / " + std::to_string(count));
  };
  std::unique_ptr<LongOperation> pacing = MakePacing(kCountRefresh);
  for (; i <= count; ++i) {
    if (files.GroupID(i) == -1) {
      FileRecord r = files.Record(i);
      if (!headed) {
        headed = true;
        if (!write(ctx_.texts.Get(txt::T9228), "WriteFile1: ")) break;
      }
      std::string line = FullPath(r);
      if (r.ArchiveType != 0)  // the archive, then the member's path inside it
        line += " --> " + (r.PathInsideZip.empty() ? "" : r.PathInsideZip + "/") +
                GetFileNameWithExtension(r);
      if (!write(DisplayUtf8(line), "WriteFile2: ")) break;
    }
    if (!pacing->Step(refresh)) break;
  }
  ::close(fd);
  return error->empty();
}

}  // namespace kelvor
