// `kvcache panel`: the cache object's rollouts driven from the shell. Actions run in order,
// as a user would press, type and choose; the answers the user would give to dialogs come
// from options. Prints each action with the undo step it made, then the rollouts.
#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <ostream>
#include <sstream>

#include "cache/registry.h"
#include "commands.h"
#include "explode/explode.h"
#include "object/cache_obj.h"
#include "record/object_target.h"
#include "res/control_ids.h"
#include "scene_io.h"
#include "ui/panel.h"

namespace kv::cli {

namespace {

std::string Lower(std::string s) {
  for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

// A control by id, or by its caption (letter case ignored; the first in rollout order wins).
int ControlByName(const std::string& name) {
  char* end = nullptr;
  const long id = std::strtol(name.c_str(), &end, 10);
  if (end && *end == '\0' && !name.empty())
    return ui::FindRolloutControl(static_cast<int>(id)) ? static_cast<int>(id) : 0;
  const std::string want = Lower(name);
  for (const ui::DialogDef& d : ui::RolloutDefs())
    for (const ui::ControlDef& c : d.controls)
      if (c.id != res::IDC_STATIC && Lower(c.Caption()) == want && c.kind != ui::Kind::Static &&
          c.kind != ui::Kind::GroupBox)
        return c.id;
  return 0;
}

std::vector<std::string> Split(const std::string& s, char sep) {
  std::vector<std::string> out;
  std::stringstream in(s);
  std::string part;
  while (std::getline(in, part, sep))
    if (!part.empty()) out.push_back(part);
  return out;
}

// One action: "[shift] press C", "type C VALUE", "choose C ITEM", "select C ROWS", where C
// is a control id or caption (quote captions with spaces as a whole action: "press Update
// Now" works, the caption being the rest of the line for press).
bool RunAction(ui::Panel& p, standalone::Scene& scene, const std::string& action,
               std::string& error) {
  std::istringstream in(action);
  std::string verb;
  in >> verb;
  bool shift = false;
  if (Lower(verb) == "shift") {
    shift = true;
    in >> verb;
  }
  verb = Lower(verb);
  std::string rest;
  std::getline(in, rest);
  rest.erase(0, rest.find_first_not_of(' '));
  scene.GetResponder().shiftDown = shift;
  struct Reset {
    standalone::Scene& s;
    ~Reset() { s.GetResponder().shiftDown = false; }
  } reset{scene};

  if (verb == "press") {
    const int id = ControlByName(rest);
    if (!id) return error = "no control '" + rest + "'", false;
    if (!p.Press(id)) return error = "'" + rest + "' cannot be pressed now", false;
    return true;
  }
  // The last word is the value; the words before name the control.
  const size_t cut = rest.find_last_of(' ');
  if (cut == std::string::npos)
    return error = "'" + action + "' needs a control and a value", false;
  const std::string name = rest.substr(0, cut), value = rest.substr(cut + 1);
  const int id = ControlByName(name);
  if (!id) return error = "no control '" + name + "'", false;
  if (verb == "type") {
    char* end = nullptr;
    const double v = std::strtod(value.c_str(), &end);
    if (!end || *end != '\0') return error = "'" + value + "' is not a number", false;
    if (!p.Type(id, v)) return error = "cannot type " + value + " into '" + name + "'", false;
    return true;
  }
  if (verb == "choose") {
    const ui::ControlState& c = p.Control(id);
    int index = -1;
    for (size_t i = 0; i < c.items.size(); ++i)
      if (Lower(c.items[i]) == Lower(value)) index = static_cast<int>(i);
    if (index < 0) {
      char* end = nullptr;
      const long v = std::strtol(value.c_str(), &end, 10);
      if (end && *end == '\0') index = static_cast<int>(v);
    }
    if (!p.Choose(id, index)) return error = "'" + name + "' has no item '" + value + "'", false;
    return true;
  }
  if (verb == "select") {
    std::vector<int> rows;
    for (const std::string& r : Split(value, ',')) {
      char* end = nullptr;
      const long v = std::strtol(r.c_str(), &end, 10);
      if (!end || *end != '\0') return error = "'" + r + "' is not a row number", false;
      rows.push_back(static_cast<int>(v));
    }
    if (!p.SelectItems(id, rows))
      return error = "cannot select rows " + value + " of '" + name + "'", false;
    return true;
  }
  return error = "unknown action '" + verb + "' (use press, type, choose or select)", false;
}

}  // namespace

int RunPanel(const PanelArgs& a, const CommonArgs&, std::ostream& out, std::ostream& err) {
  KelvaneTools::kvCacheRegistry caches;
  std::unique_ptr<standalone::Scene> scene;
  kvCache_obj* obj = nullptr;
  std::string error;
  if (!a.file.empty() && IsSceneFile(a.file)) {
    scene = OpenSceneNode(a.file, a.node, caches, obj, error);
    if (!scene) {
      err << "kvcache panel: " << error << '\n';
      return kExitError;
    }
  } else {
    scene = std::make_unique<standalone::Scene>();
    auto o = std::make_unique<kvCache_obj>(*scene, caches, false);
    obj = o.get();
    scene->CreateObjectNode(std::move(o), a.node);
    if (!a.file.empty()) obj->Params().SetString(param::kFileName, a.file);
    scene->UndoHistory().Clear();
  }

  standalone::Responder& user = scene->GetResponder();
  for (const std::string& f : a.fileAnswers) user.fileAnswers.push_back(f);
  for (const std::string& n : a.picks) user.picks.push_back(n == "-" ? std::string() : n);
  for (const std::string& list : a.byName) user.byNameAnswers.push_back(Split(list, ','));
  for (const std::string& pattern : a.elements)
    user.dialogActions.push_back([pattern](host::ModalDialog& m) {
      auto* d = dynamic_cast<ui::ElementListDialog*>(&m);
      if (!d) return 0;
      d->SetFilter(pattern);
      d->All();
      return d->Ok();
    });
  std::vector<std::string> names = a.groupNames;
  obj->askGroupName = [&names](std::string& n) {
    if (names.empty()) return false;
    n = names.front();
    names.erase(names.begin());
    return true;
  };

  RegistryRefresher refresher(caches);
  Recorder interactive(*scene, &refresher);
  ui::PanelServices services;
  services.record = [&](kvCache_obj& o) { RecordCacheObject(interactive, o, {}); };
  services.newCache = [&](kvCache_obj& o) {
    host::Node* own = nullptr;
    for (host::Node* n : scene->NodesReferencing(&o)) own = own ? own : n;
    std::string asset;
    if (!ui::SaveCacheFileDialog(*scene, asset, own ? own->GetName() : "KVCache_", true)) return;
    RecordOptions opt;
    opt.fileName = asset;
    RecordCacheObject(interactive, o, opt);
  };
  services.explode = [&](kvCache_obj& o) {
    explode::Explode(*scene, o, explode::InputsFromRollout(o, *scene));
  };
  ui::Panel panel(*scene, *obj, services);

  int code = kExitOk;
  for (const std::string& action : a.actions) {
    const size_t shown = user.log.size();
    const int steps = scene->UndoHistory().NumUndoSteps();
    if (!RunAction(panel, *scene, action, error)) {
      err << "kvcache panel: " << action << ": " << error << '\n';
      code = kExitUsage;
      break;
    }
    out << "> " << action;
    if (scene->UndoHistory().NumUndoSteps() > steps)
      out << "  [undo: " << scene->UndoHistory().UndoLabel() << "]";
    out << '\n';
    for (size_t i = shown; i < user.log.size(); ++i)
      if (user.log[i].what == standalone::Responder::Shown::What::MessageBox)
        out << "  message: " << user.log[i].title << ": " << user.log[i].text << '\n';
  }
  if (code == kExitOk) {
    for (int m = 0; m < static_cast<int>(ui::RolloutDefs().size()); ++m)
      if (a.all) panel.SetRolloutOpen(m, true);
    out << panel.Render();
    if (!a.save.empty() && !SaveSceneFile(*scene, a.save, error)) {
      err << "kvcache panel: " << error << '\n';
      code = kExitError;
    }
  }
  return code;
}

}  // namespace kv::cli
