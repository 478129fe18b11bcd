#include "script/literal.h"

#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <limits>

namespace kv::script {

namespace {

bool IsIdentStart(char c) {
  return std::isalpha(static_cast<unsigned char>(c)) || c == '_';
}
bool IsIdentChar(char c) {
  return std::isalnum(static_cast<unsigned char>(c)) || c == '_';
}

bool EqualNoCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (std::tolower(static_cast<unsigned char>(a[i])) !=
        std::tolower(static_cast<unsigned char>(b[i])))
      return false;
  }
  return true;
}

// A recursive-descent reader over one literal. Nesting is bounded so that a hostile input
// cannot exhaust the stack.
class Parser {
 public:
  Parser(std::string_view text, host::Interface& ip) : s_(text), ip_(ip) {}

  bool ParseAll(Value& out, std::string& error) {
    const bool ok = ParseValue(out, 0) && (SkipBlanks(), AtEnd() || Fail("end of the literal"));
    if (!ok) {
      error = error_;
      out = Value();
    }
    return ok;
  }

 private:
  static constexpr int kMaxDepth = 64;

  bool AtEnd() const { return pos_ >= s_.size(); }
  char Peek(size_t ahead = 0) const { return pos_ + ahead < s_.size() ? s_[pos_ + ahead] : '\0'; }
  void SkipBlanks() {
    while (!AtEnd() && std::isspace(static_cast<unsigned char>(s_[pos_]))) ++pos_;
  }
  bool Fail(const std::string& expected) {
    if (error_.empty()) {
      error_ =
          "malformed literal at character " + std::to_string(pos_ + 1) + ": expected " + expected;
      if (!AtEnd()) error_ += ", found '" + std::string(1, s_[pos_]) + "'";
    }
    return false;
  }
  bool FailText(const std::string& text) {
    if (error_.empty()) error_ = text;
    return false;
  }
  bool Expect(char c) {
    SkipBlanks();
    if (Peek() != c) return Fail(std::string("'") + c + "'");
    ++pos_;
    return true;
  }
  std::string_view Ident() {
    const size_t start = pos_;
    if (!IsIdentStart(Peek())) return {};
    while (!AtEnd() && IsIdentChar(s_[pos_])) ++pos_;
    return s_.substr(start, pos_ - start);
  }

  bool ParseValue(Value& out, int depth) {
    if (depth > kMaxDepth) return FailText("malformed literal: nested too deeply");
    SkipBlanks();
    const char c = Peek();
    if (c == '"') return ParseString(out);
    if (c == '#') {
      if (Peek(1) == '(') return ParseArray(out, depth);
      if (Peek(1) == '{') return ParseBits(out);
      ++pos_;
      return ParseName(out);
    }
    if (c == '$') return ParseNode(out);
    if (c == '(') return ParseInterval(out, depth);
    if (c == '-' || c == '+' || c == '.' || std::isdigit(static_cast<unsigned char>(c)))
      return ParseNumber(out);
    if (IsIdentStart(c)) {
      const size_t at = pos_;
      const std::string_view word = Ident();
      if (EqualNoCase(word, "true")) return out = Value::Bool(true), true;
      if (EqualNoCase(word, "false")) return out = Value::Bool(false), true;
      if (EqualNoCase(word, "undefined")) return out = Value(), true;
      if (EqualNoCase(word, "ok")) return out = Value::MakeOk(), true;
      pos_ = at;
    }
    return Fail(
        "a value (\"text\", a number, true, false, #name, #(...), #{...}, "
        "(interval a b) or $node)");
  }

  bool ParseString(Value& out) {
    ++pos_;  // opening quote
    std::string text;
    while (true) {
      if (AtEnd()) return Fail("a closing '\"'");
      const char c = s_[pos_++];
      if (c == '"') break;
      if (c != '\\') {
        text += c;
        continue;
      }
      if (AtEnd()) return Fail("an escaped character after '\\'");
      const char e = s_[pos_++];
      switch (e) {
        case '"':
        case '\\':
          text += e;
          break;
        case 'n':
          text += '\n';
          break;
        case 't':
          text += '\t';
          break;
        case 'r':
          text += '\r';
          break;
        default:
          --pos_;
          return Fail("one of \\\" \\\\ \\n \\t \\r");
      }
    }
    out = Value::String(std::move(text));
    return true;
  }

  bool ParseQuoted(char quote, std::string& text) {
    ++pos_;
    while (true) {
      if (AtEnd()) return Fail(std::string("a closing ") + quote);
      const char c = s_[pos_++];
      if (c == quote) return true;
      if (c == '\\') {
        if (AtEnd()) return Fail("an escaped character after '\\'");
        text += s_[pos_++];
      } else {
        text += c;
      }
    }
  }

  bool ParseName(Value& out) {
    std::string name;
    if (Peek() == '\'') {
      if (!ParseQuoted('\'', name)) return false;
      if (name.empty()) return Fail("a name");
    } else {
      const std::string_view word = Ident();
      if (word.empty()) return Fail("a name after '#'");
      name.assign(word);
    }
    out = Value::Name(std::move(name));
    return true;
  }

  // Numbers: integers, floats, and times with an f (frames) or t (ticks) suffix.
  bool ParseNumber(Value& out) {
    const size_t start = pos_;
    if (Peek() == '-' || Peek() == '+') ++pos_;
    bool isFloat = false, digits = false;
    while (std::isdigit(static_cast<unsigned char>(Peek()))) ++pos_, digits = true;
    if (Peek() == '.' && Peek(1) != '.') {
      isFloat = true;
      ++pos_;
      while (std::isdigit(static_cast<unsigned char>(Peek()))) ++pos_, digits = true;
    }
    if (!digits) return Fail("a number");
    if ((Peek() == 'e' || Peek() == 'E') && (std::isdigit(static_cast<unsigned char>(Peek(1))) ||
                                             ((Peek(1) == '-' || Peek(1) == '+') &&
                                              std::isdigit(static_cast<unsigned char>(Peek(2)))))) {
      isFloat = true;
      pos_ += 2;
      while (std::isdigit(static_cast<unsigned char>(Peek()))) ++pos_;
    }
    std::string text(s_.substr(start, pos_ - start));
    if (!text.empty() && text[0] == '+') text.erase(0, 1);
    double v = 0;
    const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), v);
    if (ec != std::errc() || end != text.data() + text.size() || !std::isfinite(v)) {
      pos_ = start;
      return Fail("a finite number");
    }
    const char suffix = static_cast<char>(std::tolower(static_cast<unsigned char>(Peek())));
    if ((suffix == 'f' || suffix == 't') && !IsIdentChar(Peek(1))) {
      ++pos_;
      const double ticks = suffix == 'f' ? v * ip_.GetTicksPerFrame() : v;
      if (suffix == 't' && isFloat) return Fail("whole ticks");
      const double r = std::round(ticks);
      if (r < std::numeric_limits<TimeValue>::min() || r > std::numeric_limits<TimeValue>::max())
        return FailText("time out of range: " + std::string(s_.substr(start, pos_ - start)));
      out = Value::Time(static_cast<TimeValue>(r));
      return true;
    }
    if (IsIdentChar(Peek())) return Fail("a number (a time takes the suffix f or t)");
    if (isFloat) {
      if (std::fabs(v) > std::numeric_limits<float>::max())
        return FailText("number out of range: " + text);
      out = Value::Float(static_cast<float>(v));
      return true;
    }
    if (v < std::numeric_limits<int32_t>::min() || v > std::numeric_limits<int32_t>::max())
      return FailText("integer out of range: " + text);
    out = Value::Int(static_cast<int32_t>(v));
    return true;
  }

  bool ParseArray(Value& out, int depth) {
    pos_ += 2;
    std::vector<Value> items;
    SkipBlanks();
    if (Peek() == ')') {
      ++pos_;
      out = Value::List({});
      return true;
    }
    while (true) {
      Value item;
      if (!ParseValue(item, depth + 1)) return false;
      items.push_back(std::move(item));
      SkipBlanks();
      if (Peek() == ',') {
        ++pos_;
        continue;
      }
      if (Peek() == ')') {
        ++pos_;
        break;
      }
      return Fail("',' or ')'");
    }
    out = Value::List(std::move(items));
    return true;
  }

  // A bit index of #{...}: a positive integer, at most the size a bitArray may reach.
  bool ParseBitIndex(int32_t& n) {
    SkipBlanks();
    const size_t start = pos_;
    while (std::isdigit(static_cast<unsigned char>(Peek()))) ++pos_;
    if (start == pos_) return Fail("a positive integer");
    const auto [end, ec] = std::from_chars(s_.data() + start, s_.data() + pos_, n);
    (void)end;
    // Bits are stored: a huge index would be a huge allocation.
    if (ec != std::errc() || n < 1 || n > kMaxBits) {
      pos_ = start;
      return Fail("an index from 1 to " + std::to_string(kMaxBits));
    }
    return true;
  }
  static constexpr int32_t kMaxBits = 1 << 24;

  bool ParseBits(Value& out) {
    pos_ += 2;
    BitArray bits;
    SkipBlanks();
    if (Peek() == '}') {
      ++pos_;
      out = Value::Bits(std::move(bits));
      return true;
    }
    while (true) {
      int32_t a = 0, b = 0;
      if (!ParseBitIndex(a)) return false;
      b = a;
      SkipBlanks();
      if (Peek() == '.' && Peek(1) == '.') {
        pos_ += 2;
        if (!ParseBitIndex(b)) return false;
        if (b < a)
          return FailText("malformed literal: a bit range runs backwards: " + std::to_string(a) +
                          ".." + std::to_string(b));
      }
      if (bits.GetSize() < b) bits.SetSize(b);
      for (int32_t i = a; i <= b; ++i) bits.Set(i - 1);
      SkipBlanks();
      if (Peek() == ',') {
        ++pos_;
        continue;
      }
      if (Peek() == '}') {
        ++pos_;
        break;
      }
      return Fail("',', '..' or '}'");
    }
    out = Value::Bits(std::move(bits));
    return true;
  }

  // Interval ends: times, or plain numbers counted as frames.
  bool ParseTimeValue(TimeValue& t, int depth) {
    Value v;
    if (!ParseValue(v, depth + 1)) return false;
    if (v.Is(Kind::Time)) {
      t = v.t;
      return true;
    }
    if (v.IsNumber()) {
      const double ticks = std::round(v.Number() * ip_.GetTicksPerFrame());
      if (ticks < std::numeric_limits<TimeValue>::min() ||
          ticks > std::numeric_limits<TimeValue>::max())
        return FailText("time out of range in the interval");
      t = static_cast<TimeValue>(ticks);
      return true;
    }
    return FailText("malformed literal: an interval takes two times, got " + PrintLiteral(v, ip_));
  }

  bool ParseInterval(Value& out, int depth) {
    ++pos_;
    SkipBlanks();
    if (!EqualNoCase(Ident(), "interval")) return Fail("'interval' after '('");
    TimeValue a = 0, b = 0;
    if (!ParseTimeValue(a, depth) || !ParseTimeValue(b, depth) || !Expect(')')) return false;
    out = Value::Range(Interval(a, b));
    return true;
  }

  bool ParseNode(Value& out) {
    ++pos_;
    std::string name;
    if (Peek() == '\'') {
      if (!ParseQuoted('\'', name)) return false;
    } else {
      while (!AtEnd() && IsIdentChar(s_[pos_])) name += s_[pos_++];
    }
    if (name.empty()) return Fail("a node name after '$'");
    host::Node* node = ip_.GetNodeByName(name);
    if (!node || node->IsDeleted()) return FailText("no node named '" + name + "' in the scene");
    if (Peek() != '.') {
      out = Value::NodeRef(node);
      return true;
    }
    // A controller path.
    std::vector<std::string_view> parts;
    while (Peek() == '.') {
      ++pos_;
      const std::string_view part = Ident();
      if (part.empty()) return Fail("a property name after '.'");
      parts.push_back(part);
    }
    host::Control* c = nullptr;
    host::Control* tm = node->GetTMController();
    if (parts.size() == 1 && EqualNoCase(parts[0], "controller")) {
      c = tm;
    } else if (parts.size() == 2 && EqualNoCase(parts[1], "controller") && tm) {
      if (EqualNoCase(parts[0], "position") || EqualNoCase(parts[0], "pos")) {
        c = tm->GetPositionController();
      } else if (EqualNoCase(parts[0], "rotation")) {
        c = tm->GetRotationController();
      } else if (EqualNoCase(parts[0], "scale")) {
        c = tm->GetScaleController();
      }
    }
    if (!c) {
      return FailText("malformed literal: $" + name +
                      " takes .controller, .position.controller, .rotation.controller or "
                      ".scale.controller");
    }
    out = Value::Ctrl(c);
    return true;
  }

  std::string_view s_;
  host::Interface& ip_;
  size_t pos_ = 0;
  std::string error_;
};

std::string QuoteNodeName(const std::string& name) {
  bool plain = !name.empty();
  for (const char c : name) plain = plain && IsIdentChar(c);
  if (plain) return "$" + name;
  std::string out = "$'";
  for (const char c : name) {
    if (c == '\'' || c == '\\') out += '\\';
    out += c;
  }
  return out + "'";
}

std::string PrintFloat(float f) {
  char buf[64];
  const auto [end, ec] = std::to_chars(buf, buf + sizeof buf, f);
  if (ec != std::errc()) return "0.0";
  std::string s(buf, end);
  // A float must read back as a float, not an integer.
  if (s.find_first_of(".en") == std::string::npos) s += ".0";
  return s;
}

std::string PrintTime(TimeValue t, int tpf) {
  if (tpf > 0 && t % tpf == 0) return std::to_string(t / tpf) + "f";
  return std::to_string(t) + "t";
}

// The node whose transform controller is, or holds, `c`, and the path to it.
std::string PrintController(const host::Control* c, const host::Interface& ip) {
  std::vector<host::Node*> todo = ip.GetRootNodes();
  while (!todo.empty()) {
    host::Node* n = todo.back();
    todo.pop_back();
    for (int i = 0; i < n->NumChildren(); ++i) todo.push_back(n->GetChild(i));
    host::Control* tm = n->GetTMController();
    if (!tm || n->IsDeleted()) continue;
    const std::string base = QuoteNodeName(n->GetName());
    if (tm == c) return base + ".controller";
    if (tm->GetPositionController() == c) return base + ".position.controller";
    if (tm->GetRotationController() == c) return base + ".rotation.controller";
    if (tm->GetScaleController() == c) return base + ".scale.controller";
  }
  return "<Controller>";
}

}  // namespace

bool ParseLiteral(std::string_view text, host::Interface& ip, Value& out, std::string& error) {
  return Parser(text, ip).ParseAll(out, error);
}

std::string PrintLiteral(const Value& v, const host::Interface& ip) {
  const int tpf = ip.GetTicksPerFrame();
  switch (v.kind) {
    case Kind::Undefined:
      return "undefined";
    case Kind::Ok:
      return "OK";
    case Kind::Bool:
      return v.b ? "true" : "false";
    case Kind::Int:
      return std::to_string(v.i);
    case Kind::Float:
      return PrintFloat(v.f);
    case Kind::String: {
      std::string out = "\"";
      for (const char c : v.s) {
        switch (c) {
          case '"':
            out += "\\\"";
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
          case '\r':
            out += "\\r";
            break;
          default:
            out += c;
        }
      }
      return out + "\"";
    }
    case Kind::Time:
      return PrintTime(v.t, tpf);
    case Kind::Interval:
      return "(interval " + PrintTime(v.iv.Start(), tpf) + " " + PrintTime(v.iv.End(), tpf) + ")";
    case Kind::Node:
      return v.node ? QuoteNodeName(v.node->GetName()) : "undefined";
    case Kind::Name: {
      bool plain = !v.s.empty() && IsIdentStart(v.s[0]);
      for (const char c : v.s) plain = plain && IsIdentChar(c);
      if (plain) return "#" + v.s;
      std::string out = "#'";
      for (const char c : v.s) {
        if (c == '\'' || c == '\\') out += '\\';
        out += c;
      }
      return out + "'";
    }
    case Kind::Controller:
      return PrintController(v.ctrl, ip);
    case Kind::Array: {
      std::string out = "#(";
      for (size_t i = 0; i < v.items.size(); ++i) {
        if (i) out += ", ";
        out += PrintLiteral(v.items[i], ip);
      }
      return out + ")";
    }
    case Kind::BitArray: {
      std::string out = "#{";
      bool first = true;
      int runStart = -1, prev = -2;
      auto flush = [&] {
        if (runStart < 0) return;
        if (!first) out += ", ";
        first = false;
        out += std::to_string(runStart + 1);
        if (prev > runStart) out += ".." + std::to_string(prev + 1);
      };
      v.bits.ForEachSet([&](int i) {
        if (i != prev + 1) {
          flush();
          runStart = i;
        }
        prev = i;
      });
      flush();
      return out + "}";
    }
  }
  return "undefined";
}

bool ParseCallArgs(const std::vector<std::string>& words, host::Interface& ip,
                   std::vector<CallArg>& out, std::string& error) {
  out.clear();
  for (const std::string& w : words) {
    CallArg a;
    std::string_view text = w;
    size_t i = 0;
    while (i < w.size() && IsIdentChar(w[i])) ++i;
    if (i > 0 && i < w.size() && w[i] == ':' && IsIdentStart(w[0])) {
      a.name = w.substr(0, i);
      text = text.substr(i + 1);
    }
    std::string why;
    if (!ParseLiteral(text, ip, a.value, why)) {
      error = (a.name.empty() ? "argument " : "keyword " + a.name + ": ") +
              (a.name.empty() ? "'" + w + "': " : std::string()) + why;
      return false;
    }
    out.push_back(std::move(a));
  }
  return true;
}

}  // namespace kv::script
