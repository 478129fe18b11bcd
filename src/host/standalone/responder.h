// Stands in for the user: answers message boxes, file dialogs and the Escape key from
// queues that tests and command-line flags fill, and logs what was shown.
#pragma once

#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "host/interface.h"

namespace kv::standalone {

struct Responder {
  // Answers to message boxes, oldest first. When empty: Ok for Info, Warning and Error
  // boxes, `questionDefault` for questions.
  std::deque<host::MsgBoxResult> msgBoxAnswers;
  host::MsgBoxResult questionDefault = host::MsgBoxResult::No;
  // Answers to open and save dialogs: a path, or nullopt for Cancel. Empty: Cancel.
  std::deque<std::optional<std::string>> fileAnswers;
  // Answers to Escape polls, one per poll. Empty: not pressed.
  std::deque<bool> escAnswers;
  bool shiftDown = false;

  // Escape reads as pressed on the n-th poll from now (n >= 1).
  void PressEscAfter(int polls) {
    escAnswers.assign(static_cast<size_t>(polls > 1 ? polls - 1 : 0), false);
    escAnswers.push_back(true);
  }

  struct Shown {
    enum class What { MessageBox, SaveDialog, OpenDialog } what;
    std::string title, text;  // a dialog's text is its proposed name or filter
    host::MsgBoxKind kind = host::MsgBoxKind::Info;
  };
  std::vector<Shown> log;
};

}  // namespace kv::standalone
