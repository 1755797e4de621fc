#pragma once
// A scripted prompt for the frame's tests: records every box, answers input
// boxes and yes/no questions from queues.

#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "frame/sinks.h"

namespace kelvor::test {

struct FakePrompt : Prompt {
  std::vector<std::string> messages;
  std::vector<std::string> questions;
  std::deque<std::optional<std::string>> inputs;
  std::deque<bool> answers;

  void Message(std::string_view text, MessageIcon) override { messages.emplace_back(text); }
  bool AskYesNo(std::string_view text) override {
    questions.emplace_back(text);
    if (answers.empty()) return false;
    const bool a = answers.front();
    answers.pop_front();
    return a;
  }
  std::optional<std::string> Input(std::string_view prompt, std::string_view) override {
    questions.emplace_back(prompt);
    if (inputs.empty()) return std::nullopt;
    auto a = inputs.front();
    inputs.pop_front();
    return a;
  }
};

}  // namespace kelvor::test
