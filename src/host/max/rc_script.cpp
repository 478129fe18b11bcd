#include "host/max/rc_script.h"

#include "res/strings.h"
#include "ui/rollout_table.h"

namespace kv::max {

std::string RcQuote(std::string_view text) {
  std::string out = "\"";
  for (const char c : text) {
    switch (c) {
      case '"':
        out += "\"\"";
        break;
      case '\\':
        out += "\\\\";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\t':
        out += "\\t";
        break;
      default:
        out += c;
        break;
    }
  }
  out += '"';
  return out;
}

namespace {

std::string Rect(const ui::ControlDef& c) {
  return std::to_string(c.x) + ", " + std::to_string(c.y) + ", " + std::to_string(c.w) + ", " +
         std::to_string(c.h);
}

// A control of a window class by name: CONTROL text, id, class, style, x, y, w, h.
std::string Custom(const ui::ControlDef& c, const char* cls, const char* style) {
  return "  CONTROL " + RcQuote(c.Caption()) + ", " + std::to_string(c.id) + ", " + RcQuote(cls) +
         ", " + style + ", " + Rect(c) + "\n";
}

std::string ControlScript(const ui::ControlDef& c, bool firstOfGroup) {
  const std::string id = std::to_string(c.id);
  switch (c.kind) {
    case ui::Kind::Static:
      return "  LTEXT " + RcQuote(c.Caption()) + ", " + id + ", " + Rect(c) + "\n";
    case ui::Kind::GroupBox:
      return "  GROUPBOX " + RcQuote(c.Caption()) + ", " + id + ", " + Rect(c) + "\n";
    case ui::Kind::Status:
      return Custom(c, "CustStatus", "WS_CHILD | WS_VISIBLE");
    case ui::Kind::Button:
    case ui::Kind::CheckButton:
    case ui::Kind::PickButton:
      return Custom(c, "CustButton", "WS_CHILD | WS_VISIBLE | WS_TABSTOP");
    case ui::Kind::Edit:
      return Custom(c, "CustEdit", "WS_CHILD | WS_VISIBLE | WS_TABSTOP");
    case ui::Kind::Spinner:
      return Custom(c, "SpinnerControl", "WS_CHILD | WS_VISIBLE");
    case ui::Kind::CheckBox:
      return Custom(c, "Button", "BS_AUTOCHECKBOX | WS_CHILD | WS_VISIBLE | WS_TABSTOP");
    case ui::Kind::Radio:
      // The first button of a run starts the group the arrow keys move in.
      return Custom(c, "Button",
                    firstOfGroup
                        ? "BS_AUTORADIOBUTTON | WS_CHILD | WS_VISIBLE | WS_GROUP | WS_TABSTOP"
                        : "BS_AUTORADIOBUTTON | WS_CHILD | WS_VISIBLE");
    case ui::Kind::DropDown:
      // The height given is the closed box; the list drops below it.
      return "  COMBOBOX " + id + ", " + std::to_string(c.x) + ", " + std::to_string(c.y) + ", " +
             std::to_string(c.w) + ", " + std::to_string(c.h + 120) +
             ", CBS_DROPDOWNLIST | WS_VSCROLL | WS_TABSTOP\n";
    case ui::Kind::ListBox:
      return "  LISTBOX " + id + ", " + Rect(c) +
             ", LBS_EXTENDEDSEL | LBS_NOINTEGRALHEIGHT | WS_VSCROLL | WS_TABSTOP\n";
    case ui::Kind::Edit2:
      return "  EDITTEXT " + id + ", " + Rect(c) + ", ES_AUTOHSCROLL\n";
  }
  return {};
}

}  // namespace

std::string DialogScript(const ui::DialogDef& d) {
  const bool modal = d.map < 0;
  std::string rc = std::to_string(d.templateId) + " DIALOGEX 0, 0, " + std::to_string(d.width) +
                   ", " + std::to_string(d.height) + "\n";
  if (modal) {
    rc += std::string("STYLE DS_SETFONT | DS_MODALFRAME | WS_POPUP | WS_CAPTION | WS_SYSMENU") +
          (d.resizable ? " | WS_THICKFRAME" : "") + "\n";
    rc += "CAPTION " + RcQuote(res::FindString(d.titleId)) + "\n";
  } else {
    // A rollout is a child page of the command panel; its title is the rollout's.
    rc += "STYLE DS_SETFONT | WS_CHILD | WS_VISIBLE\n";
  }
  rc += "FONT 8, \"MS Sans Serif\"\nBEGIN\n";
  ui::Kind previous = ui::Kind::Static;
  for (const ui::ControlDef& c : d.controls) {
    rc += ControlScript(c, c.kind == ui::Kind::Radio && previous != ui::Kind::Radio);
    previous = c.kind;
  }
  rc += "END\n";
  return rc;
}

std::string ResourceScript() {
  std::string rc =
      "// Generated at build time from the string and rollout tables; edit those, not this.\n"
      "#pragma code_page(65001)\n"
      "#include <windows.h>\n\n"
      "STRINGTABLE\nBEGIN\n";
  for (const res::StringEntry& e : res::StringTable()) {
    rc += "  " + std::to_string(e.id) + ", " + RcQuote(e.text) + "\n";
  }
  rc += "END\n";
  for (const ui::DialogDef& d : ui::RolloutDefs()) rc += "\n" + DialogScript(d);
  rc += "\n" + DialogScript(ui::ElementListDialogDef());
  return rc;
}

}  // namespace kv::max
