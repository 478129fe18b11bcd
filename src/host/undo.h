// Undo: restore records and the hold that gathers them into named steps.
#pragma once

#include <memory>
#include <string>

namespace kv::host {

// A snapshot that can put something back (undo) and forward again (redo).
class RestoreObj {
 public:
  virtual ~RestoreObj() = default;
  // isUndo is true when the user undoes; false when the hold is cancelled.
  virtual void Restore(bool isUndo) = 0;
  virtual void Redo() = 0;
  // Bytes held, for the undo buffer's accounting.
  virtual int Size() const = 0;
  // Called when the step that holds this record is accepted or cancelled.
  virtual void EndHold() {}
  virtual std::string Description() const { return {}; }
};

// The host's undo hold (one per host). Records put while holding become one undo step
// when accepted, or are restored and dropped when cancelled.
class Hold {
 public:
  virtual ~Hold() = default;
  virtual bool Holding() const = 0;  // a hold is open and not suspended
  virtual void Begin() = 0;
  virtual void Put(std::unique_ptr<RestoreObj> rec) = 0;  // ignored when not holding
  virtual void Accept(const std::string& label) = 0;
  virtual void Cancel() = 0;
  // Suspend and Resume nest; while suspended Holding() is false and Put drops records.
  virtual void Suspend() = 0;
  virtual void Resume() = 0;
  virtual bool IsSuspended() const = 0;
  // True while an undo or redo puts records back: whatever changes then is being restored,
  // and rules that derive one value from another must leave it alone.
  virtual bool RestoringOrRedoing() const { return false; }
};

// Opens a hold unless one is open; Accept/Cancel close it only if this opened it.
class ScopedHold {
 public:
  explicit ScopedHold(Hold& h) : hold_(h), began_(!h.Holding() && !h.IsSuspended()) {
    if (began_) hold_.Begin();
  }
  ~ScopedHold() {
    if (began_ && !done_) hold_.Cancel();
  }
  ScopedHold(const ScopedHold&) = delete;
  ScopedHold& operator=(const ScopedHold&) = delete;
  void Accept(const std::string& label) {
    if (began_ && !done_) hold_.Accept(label);
    done_ = true;
  }
  void Cancel() {
    if (began_ && !done_) hold_.Cancel();
    done_ = true;
  }

 private:
  Hold& hold_;
  bool began_;
  bool done_ = false;
};

}  // namespace kv::host
