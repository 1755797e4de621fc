#pragma once
// A result model with an undo history, a view and a scripted prompt, for the
// tests of the selection, removal and undo commands.

#include <deque>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "frame/run_state.h"
#include "frame/sinks.h"
#include "results/commands.h"
#include "results/result_model.h"
#include "results/undo.h"
#include "results/view_state.h"

namespace kelvor::test {

// Answers input boxes and questions from queues and records what was asked,
// with the default offered.
struct ScriptPrompt : Prompt {
  std::vector<std::string> messages, asked, defaults;
  std::deque<std::optional<std::string>> inputs;
  std::deque<bool> answers;

  void Message(std::string_view text, MessageIcon) override { messages.emplace_back(text); }
  bool AskYesNo(std::string_view text) override {
    asked.emplace_back(text);
    if (answers.empty()) return false;
    const bool a = answers.front();
    answers.pop_front();
    return a;
  }
  std::optional<std::string> Input(std::string_view prompt, std::string_view deflt) override {
    asked.emplace_back(prompt);
    defaults.emplace_back(deflt);
    if (inputs.empty()) return std::nullopt;
    auto a = inputs.front();
    inputs.pop_front();
    return a;
  }
};

// One file of a test group.
struct TestFile {
  std::string name;
  std::int64_t size = 1000;
  double date = 45000.0;  // change date
  std::string folder = "/data/src1";
  int similar = 0;
};

class CommandTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ResultOptions o;
    o.GroupTitleMode = 0;
    o.SourceFolders = {"/data/src1", "/data/src2"};
    model_.SetOptions(o);
    model_.Report_Create_Root_Node();
    undo_.Attach(model_);
  }

  // Adds a group of the given files; returns its row index.
  int AddGroup(const std::vector<TestFile>& files) {
    FileRecord first;
    first.Name = first.NameKey = "g" + std::to_string(groups_++);
    const int g = model_.Search_AddNewGroup(first);
    for (const TestFile& f : files) {
      const RowRef row = model_.AddFileRowRaw(g, f.name, f.folder, f.size,
                                              f.folder.find("src2") != std::string::npos ? 2 : 1);
      model_.SetCell(row, CellKey::dateVal, f.date);
      if (f.similar > 0) model_.SetCell(row, CellKey::similar, double(f.similar));
    }
    return model_.IndexOf(model_.GroupRowByNumber(g));
  }

  // Groups of `n` plain files each ("a0", "a1", ...).
  void AddGroups(int groups, int n) {
    for (int g = 0; g < groups; ++g) {
      std::vector<TestFile> files;
      for (int i = 0; i < n; ++i) files.push_back({"a" + std::to_string(i)});
      AddGroup(files);
    }
  }

  CommandOutcome Run(int id) {
    CommandEnv env{model_, &undo_, view_, prompt_, run_, nullptr, reader_};
    return RunResultCommand(env, id);
  }
  CommandEnv Env() { return CommandEnv{model_, &undo_, view_, prompt_, run_, nullptr, reader_}; }

  RowRef Row(int index) const { return model_.RowByIndex(index); }
  bool Marked(int index) const { return model_.IsMarked(Row(index)); }
  // The marks of all file rows in index order, "x" marked, "." not.
  std::string Marks() const {
    std::string s;
    for (int i = 1; i < model_.RowCount(); ++i) {
      const RowRef r = Row(i);
      if (r.IsGroup()) {
        s += '|';
      } else {
        s += model_.IsMarked(r) ? 'x' : '.';
      }
    }
    return s;
  }
  // A click on a file row's box.
  void Click(int index) { model_.Report_ChangeCheckboxStatus(Row(index)); }

  // The counters must equal a count of the rows.
  void ExpectCountersTrue() const {
    int files = 0, marked = 0;
    std::int64_t size = 0, markedSize = 0;
    for (int i = 1; i < model_.RowCount(); ++i) {
      const RowRef r = Row(i);
      if (r.IsGroup()) {
        int sel = 0;
        model_.ForEachFile(r, [&](RowRef f) {
          sel += model_.IsMarked(f);
          return true;
        });
        EXPECT_EQ(model_.GroupSel(r), sel) << "group at " << i;
        continue;
      }
      ++files;
      size += model_.File_GetSize(r);
      if (model_.IsMarked(r)) {
        ++marked;
        markedSize += model_.File_GetSize(r);
      }
    }
    EXPECT_EQ(model_.DupCount(), files);
    EXPECT_EQ(model_.DupCountSelected(), marked);
    EXPECT_EQ(model_.FilesizeAll(), size);
    EXPECT_EQ(model_.FilesizeSelected(), markedSize);
  }

  ResultModel model_;
  UndoHistory undo_;
  ViewState view_;
  ScriptPrompt prompt_;
  RunState run_;
  PictureSizeReader reader_;
  int groups_ = 0;
};

}  // namespace kelvor::test
