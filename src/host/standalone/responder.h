// Stands in for the user: answers message boxes, file dialogs and the Escape key from
// queues that tests and command-line flags fill, and logs what was shown.
#pragma once

#include <deque>
#include <functional>
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
  // Clicks of a viewport pick mode, oldest first: a node name, or "" for empty space. A name
  // that is not in the scene, or that the mode's filter rejects, is a click on nothing and
  // leaves the mode on. When the clicks run out the user leaves the mode.
  std::deque<std::string> picks;
  // Answers to select-by-name dialogs: the names chosen, or nullopt for Cancel. Empty:
  // Cancel. Names the dialog does not offer (hidden, or rejected by the filter) are ignored.
  std::deque<std::optional<std::vector<std::string>>> byNameAnswers;
  // What the user does in the system's modal dialogs, oldest first; each returns the dialog's
  // result. Empty: Cancel (0).
  std::deque<std::function<int(host::ModalDialog&)>> dialogActions;
  // The prompt line as a stack, and whether the host's shortcuts are on.
  std::vector<std::string> prompts;
  bool accelerators = true;

  // Escape reads as pressed on the n-th poll from now (n >= 1).
  void PressEscAfter(int polls) {
    escAnswers.assign(static_cast<size_t>(polls > 1 ? polls - 1 : 0), false);
    escAnswers.push_back(true);
  }

  struct Shown {
    enum class What { MessageBox, SaveDialog, OpenDialog, PickMode, ByName, Dialog } what;
    // A file dialog's text is its proposed name or filter; a select-by-name dialog's its
    // button; a modal dialog's title is its template id.
    std::string title, text;
    host::MsgBoxKind kind = host::MsgBoxKind::Info;
  };
  std::vector<Shown> log;
};

}  // namespace kv::standalone
