#include "ui/pickers.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include "cache/reader.h"
#include "object/cache_obj.h"
#include "object/validators.h"
#include "res/control_ids.h"
#include "res/strings.h"
#include "ui/rollout_table.h"

namespace kv::ui {
namespace fs = std::filesystem;
namespace P = kv::param;

bool MatchPattern(std::string_view text, std::string_view pattern) {
  // Iterative match with one backtrack point: linear for the usual single '*'.
  size_t t = 0, p = 0, starP = std::string_view::npos, starT = 0;
  auto lower = [](char c) {
    return static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  };
  while (t < text.size()) {
    if (p < pattern.size() && (pattern[p] == '?' || lower(pattern[p]) == lower(text[t]))) {
      ++t, ++p;
    } else if (p < pattern.size() && pattern[p] == '*') {
      starP = p++;
      starT = t;
    } else if (starP != std::string_view::npos) {
      p = starP + 1;
      t = ++starT;
    } else {
      return false;
    }
  }
  while (p < pattern.size() && pattern[p] == '*') ++p;
  return p == pattern.size();
}

std::string ProposeCacheFileName(std::string_view name) {
  std::string s(name);
  for (char& c : s)
    if (!std::isalnum(static_cast<unsigned char>(c)) || static_cast<unsigned char>(c) >= 0x80)
      c = '_';
  return s + ".kvc";
}

// ---------------------------------------------------------------- pick mode

void kvCachePick::EnterMode() {
  if (onButton) onButton(true);
  ip_.PushPrompt(res::GetString(res::IDS_SELECT_OBJECTS_TO_ADD));
}

void kvCachePick::ExitMode() {
  if (onButton) onButton(false);
  ip_.PopPrompt();
}

bool kvCachePick::Filter(host::Node* node) {
  const kvCacheNodesValidator rule(ip_, &obj_, &obj_.Params());
  return rule.Validate(node, ip_.GetTime());
}

bool kvCachePick::Pick(host::Node* node) {
  if (!node) return true;
  host::ScopedHold hold(ip_.GetHold());
  obj_.Params().Append(P::kNodes, node);
  hold.Accept(res::GetString(res::IDS_UNDO_ADD_NODE));
  return false;
}

// ---------------------------------------------------------------- select by name

void kvCacheSelByName::proc(const std::vector<host::Node*>& nodes) {
  if (busy_) return;
  busy_ = true;
  for (host::Node* n : nodes)
    if (std::find(chosen_.begin(), chosen_.end(), n) == chosen_.end()) chosen_.push_back(n);
  busy_ = false;
}

// ---------------------------------------------------------------- file dialogs

namespace {

constexpr uint32_t kOpenFlags = 0x880864;  // hide read-only, hook, template, path must exist,
                                           // explorer style, sizing
constexpr uint32_t kSaveFlags = 0x881864;  // the same, and file must exist

FileDialogSetup Setup(int titleId, uint32_t flags) {
  FileDialogSetup s;
  s.title = res::GetString(titleId);
  s.filterText = res::GetString(res::IDS_CACHE_FILE_FILTER);
  s.pattern = "*.kvc";
  s.initialDir = LastCacheDirectory();
  s.defExt = "kvc";
  s.flags = flags;
  s.templateId = res::IDD_FILE_DIALOG_EXTRA;
  return s;
}

void RememberDirectory(const std::string& path) {
  const fs::path dir = fs::path(path).parent_path();
  if (!dir.empty()) LastCacheDirectory() = dir.string();
}

// printf-style "%s" substitution for texts from the table.
std::string FormatOne(const std::string& fmt, const std::string& arg) {
  std::string out;
  const size_t at = fmt.find("%s");
  if (at == std::string::npos) return fmt;
  out = fmt.substr(0, at) + arg + fmt.substr(at + 2);
  return out;
}

}  // namespace

FileDialogSetup OpenDialogSetup() {
  return Setup(res::IDS_SELECT_CACHE_FILE, kOpenFlags);
}

FileDialogSetup SaveDialogSetup() {
  return Setup(res::IDS_SPECIFY_CACHE_FILE, kSaveFlags);
}

std::string& LastCacheDirectory() {
  static std::string dir;
  return dir;
}

bool OpenCacheFileDialog(host::Interface& ip, const std::string& current, std::string& chosen) {
  const FileDialogSetup s = OpenDialogSetup();
  std::string path = current.empty() ? std::string() : ip.ResolveAssetPath(current);
  if (!ip.OpenFileDialog(s.title, s.filterText, path)) return false;
  RememberDirectory(path);
  chosen = path;
  return true;
}

bool SaveCacheFileDialog(host::Interface& ip, std::string& asset, std::string_view name,
                         bool propose) {
  const FileDialogSetup s = SaveDialogSetup();
  const std::string proposed = propose ? ProposeCacheFileName(name) : asset;
  for (;;) {
    std::string path;
    if (!ip.SaveFileDialog(s.title, proposed, s.filterText, path)) return false;
    std::error_code ec;
    if (fs::exists(path, ec)) {
      const std::string q =
          FormatOne(res::GetString(res::IDS_FILE_EXISTS), fs::path(path).filename().string());
      if (ip.MessageBox(q, res::GetString(res::IDS_SAVE_CACHE), host::MsgBoxKind::Question) !=
          host::MsgBoxResult::Yes)
        continue;
      fs::remove(path, ec);
    }
    RememberDirectory(path);
    asset = fs::path(path).lexically_normal().string();
    return true;
  }
}

// ---------------------------------------------------------------- element list dialog

ElementListDialog::ElementListDialog(std::vector<std::string> names, std::string title,
                                     std::string label, const std::vector<int32_t>& selected)
    : names_(std::move(names)),
      title_(std::move(title)),
      label_(std::move(label)),
      selected_(selected.begin(), selected.end()) {}

std::vector<std::string> ElementListDialog::ElementNames(
    const KelvaneTools::kvCacheReader* reader) {
  std::vector<std::string> out;
  if (!reader || !reader->HasIndex()) return out;
  out.reserve(reader->NumElements());
  for (int i = 0; i < reader->NumElements(); ++i) out.push_back(reader->Element(i).name);
  return out;
}

int ElementListDialog::TemplateId() const {
  return res::IDD_ELEMENT_LIST;
}

void ElementListDialog::Open(int width, int height, std::vector<std::pair<int, Rect>> controls) {
  width_ = initWidth_ = width;
  height_ = initHeight_ = height;
  initRects_ = std::move(controls);
  rects_ = initRects_;
  Fill();
}

void ElementListDialog::Open(int pixelsPerUnit) {
  const DialogDef& d = ElementListDialogDef();
  std::vector<std::pair<int, Rect>> rects;
  for (const ControlDef& c : d.controls)
    rects.push_back(
        {c.id,
         {c.x * pixelsPerUnit, c.y * pixelsPerUnit, c.w * pixelsPerUnit, c.h * pixelsPerUnit}});
  Open(d.width * pixelsPerUnit, d.height * pixelsPerUnit, std::move(rects));
}

void ElementListDialog::Fill() {
  const std::string_view pattern = filter_.empty() ? std::string_view("*") : filter_;
  std::vector<std::string> items;
  std::vector<int32_t> rows;
  for (size_t i = 0; i < names_.size(); ++i) {
    if (!MatchPattern(names_[i], pattern)) continue;
    items.push_back(names_[i]);
    rows.push_back(static_cast<int32_t>(i));
  }
  // The same names: only the selection is reapplied (the selection lives in selected_).
  if (items == items_ && rows == rows_) return;
  items_ = std::move(items);
  rows_ = std::move(rows);
  ++refills_;
}

void ElementListDialog::SetFilter(std::string text) {
  filter_ = std::move(text);
  Fill();
}

void ElementListDialog::FocusFilter(host::Interface& ip, bool focused) {
  // Typed letters must reach the field, not the host's shortcuts.
  ip.EnableAccelerators(!focused);
}

void ElementListDialog::SelectRows(const std::vector<int>& rows) {
  for (int32_t e : rows_) selected_.erase(e);
  for (int r : rows)
    if (r >= 0 && r < static_cast<int>(rows_.size())) selected_.insert(rows_[r]);
}

void ElementListDialog::All() {
  selected_.insert(rows_.begin(), rows_.end());
}

void ElementListDialog::None() {
  for (int32_t e : rows_) selected_.erase(e);
}

void ElementListDialog::Invert() {
  for (int32_t e : rows_)
    if (!selected_.erase(e)) selected_.insert(e);
}

int ElementListDialog::DoubleClick(int row) {
  (void)row;  // the click has already selected its row
  return Ok();
}

std::vector<int> ElementListDialog::SelectedRows() const {
  std::vector<int> out;
  for (size_t r = 0; r < rows_.size(); ++r)
    if (selected_.count(rows_[r])) out.push_back(static_cast<int>(r));
  return out;
}

std::vector<int32_t> ElementListDialog::Result() const {
  std::vector<int32_t> out;
  for (int32_t e : rows_)
    if (selected_.count(e)) out.push_back(e);
  std::sort(out.begin(), out.end());
  return out;
}

void ElementListDialog::Size(int width, int height) {
  width_ = std::max(width, initWidth_);
  height_ = std::max(height, kMinHeight);
  const int dw = width_ - initWidth_, dh = height_ - initHeight_;
  const DialogDef& d = ElementListDialogDef();
  rects_ = initRects_;
  for (auto& [id, r] : rects_) {
    const ControlDef* c = d.Find(id);
    const uint8_t a = c ? c->anchor : static_cast<uint8_t>(kAnchorTopLeft);
    // Anchored to both sides: stretches; to the far side only: moves.
    if (a & kAnchorRight) {
      if (a & kAnchorLeft)
        r.w += dw;
      else
        r.x += dw;
    }
    if (a & kAnchorBottom) {
      if (a & kAnchorTop)
        r.h += dh;
      else
        r.y += dh;
    }
  }
}

Rect ElementListDialog::ControlRect(int id) const {
  for (const auto& [cid, r] : rects_)
    if (cid == id) return r;
  return {};
}

}  // namespace kv::ui
