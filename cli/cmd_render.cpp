#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ostream>
#include <vector>

#include "commands.h"
#include "object/params.h"
#include "viewer.h"

namespace kv::cli {
namespace {

constexpr int kMaxSheetFrames = 1000;
constexpr int64_t kMaxPixels = int64_t{1} << 28;

// "A:B:STEP" into frames A, A + STEP, ... up to B.
bool ParseFrames(const std::string& text, std::vector<double>& frames, std::string& error) {
  double a = 0, b = 0, step = 0;
  char tail = 0;
  if (std::sscanf(text.c_str(), "%lf:%lf:%lf%c", &a, &b, &step, &tail) != 3 || !std::isfinite(a) ||
      !std::isfinite(b) || !std::isfinite(step)) {
    error = "--frames must be A:B:STEP (for example 0:60:10), not '" + text + "'";
    return false;
  }
  if (step <= 0 || b < a) {
    error = "--frames needs a positive STEP and A no later than B";
    return false;
  }
  if ((b - a) / step + 1 > kMaxSheetFrames) {
    error = "--frames asks for more than " + std::to_string(kMaxSheetFrames) + " frames";
    return false;
  }
  for (int i = 0; a + i * step <= b + 1e-9; ++i) frames.push_back(a + i * step);
  return true;
}

std::string FrameLabel(double f) {
  char buf[48];
  std::snprintf(buf, sizeof buf, "frame %g", f);
  return buf;
}

}  // namespace

int RunRender(const RenderArgs& a, const CommonArgs& c, std::ostream& out, std::ostream& err) {
  (void)c;
  const auto usage = [&](const std::string& msg) {
    err << "kvcache render: " << msg << "\nRun with --help for more information.\n";
    return kExitUsage;
  };
  const std::string& o = a.output;
  if (o.size() < 5 || (o.substr(o.size() - 4) != ".png" && o.substr(o.size() - 4) != ".PNG"))
    return usage("the output must end in .png: " + o);
  std::vector<double> frames;
  std::string error;
  if (!a.frames.empty()) {
    if (!ParseFrames(a.frames, frames, error)) return usage(error);
  } else {
    frames.push_back(*a.frame);
  }
  const int n = static_cast<int>(frames.size());
  const int cols = a.frames.empty() ? 1 : static_cast<int>(std::ceil(std::sqrt(n)));
  const int rows = (n + cols - 1) / cols;
  if (int64_t{a.view.width} * cols * a.view.height * rows > kMaxPixels)
    return usage("the picture would be too large; ask for fewer frames or a smaller --size");

  Viewer v;
  if (!v.Open(a.input, a.node, a.play, error)) {
    err << "kvcache render: " << error << '\n';
    return kExitError;
  }
  v.Apply(a.view);
  std::vector<TimeValue> times;
  for (double f : frames) times.push_back(v.FrameTime(f));
  const Box3 bounds = v.Bounds(times);
  ParamBlock& pb = v.Object().Params();
  if (a.view.icon && pb.GetFloat(param::kIconSize) <= 0.0f) {
    // An icon of size 0 would not show: give it a size that suits the cache.
    pb.SetFloat(param::kIconSize, 0,
                std::max(bounds.IsEmpty() ? 10.0f : bounds.Width().Length() * 0.12f, 1.0f));
  }

  standalone::SoftWindow gw(a.view.width, a.view.height);
  Viewer::SetUpWindow(gw, a.view, bounds);
  standalone::Image sheet;
  sheet.width = a.view.width * cols;
  sheet.height = a.view.height * rows;
  // Cells without a frame keep the background.
  sheet.rgb.resize(static_cast<size_t>(sheet.width) * sheet.height * 3);
  for (size_t i = 0; i < sheet.rgb.size(); i += 3)
    sheet.rgb[i] = 61, sheet.rgb[i + 1] = 64, sheet.rgb[i + 2] = 69;
  for (int i = 0; i < n; ++i) {
    v.Draw(times[static_cast<size_t>(i)], gw);
    if (n > 1 || !a.frames.empty())
      gw.Text(6, 6, FrameLabel(frames[static_cast<size_t>(i)]), {1, 1, 1});
    const int cx = (i % cols) * a.view.width, cy = (i / cols) * a.view.height;
    const standalone::Image& cell = gw.Picture();
    for (int y = 0; y < cell.height; ++y) {
      std::copy_n(cell.At(0, y), static_cast<size_t>(cell.width) * 3,
                  sheet.rgb.data() + (static_cast<size_t>(cy + y) * sheet.width + cx) * 3);
    }
  }
  if (!standalone::WritePng(sheet, a.output, error)) {
    err << "kvcache render: " << error << '\n';
    return kExitError;
  }
  out << "Wrote " << sheet.width << "x" << sheet.height << " picture of " << n
      << (n == 1 ? " frame" : " frames") << " to " << a.output << '\n';
  return kExitOk;
}

}  // namespace kv::cli
