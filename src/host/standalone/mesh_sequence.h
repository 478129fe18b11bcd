// A mesh sequence: one mesh file per frame (`wall.0001.obj`, `wall.0002.obj`, ...), played as
// one node whose mesh at a time is the frame's file. Only one frame is held in memory: a
// sequence of any size streams through at the size of its largest frame.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "geom/mesh.h"
#include "host/scene.h"

namespace kv::standalone {

class Scene;

inline constexpr host::ClassId kMeshSequenceClassId{0x3E5A0C17, 0x1B7D4F62};

// Reads a Wavefront .obj (polygons fanned into triangles, texture coordinates in channel 1,
// material indices as material ids) or a .ply (ASCII or binary, vertices and faces).
bool ReadMeshFile(const std::string& path, Mesh& out, std::string& error);

// The files of a sequence, by frame number.
struct SequenceFiles {
  std::string pattern;  // as given
  std::string name;     // the sequence's name: the file name up to its frame number
  std::vector<std::pair<int, std::string>> frames;  // ascending frame numbers
  int step = 1;                                     // frames between two files
};

// Whether `arg` names a sequence: a file name with a run of '#' standing for the frame number
// (`wall.####.obj`), or an existing .obj or .ply file whose name ends in a number.
bool IsSequencePattern(const std::string& arg);

// Finds every file of the sequence in its folder. Frame numbers come from the file names and
// must run at one step: a gap names the frame that is missing. False with `error` set.
bool FindSequence(const std::string& arg, SequenceFiles& out, std::string& error);

// The node's object: at time t the file of the last frame at or before t (the first before
// the sequence starts), read when the frame changes.
class MeshSequenceObject final : public host::Object {
 public:
  MeshSequenceObject(SequenceFiles files, int ticksPerFrame);
  host::ClassId GetClassId() const override { return kMeshSequenceClassId; }
  host::SuperClass GetSuperClass() const override { return host::SuperClass::Geometry; }
  bool CanConvertToTriObject() const override { return true; }
  bool GetTriMesh(TimeValue t, bool render, Mesh& out) override;
  std::unique_ptr<Object> Clone() const override;
  bool Save(host::ISave& s) const override;
  host::IOResult Load(host::ILoad& l) override;

  const SequenceFiles& Files() const { return files_; }
  // Why the last frame read failed, or "".
  const std::string& LastError() const { return error_; }
  // Frames read from disk so far (a frame asked for twice in a row is read once).
  int Reads() const { return reads_; }

 private:
  SequenceFiles files_;
  int tpf_;
  int loaded_ = -1;  // index into files_.frames
  Mesh mesh_;
  std::string error_;
  int reads_ = 0;
};

// A scene holding the sequence as one node named after it, its animation range the
// sequence's frames at `fps`. Null with `error` set when the sequence cannot be found.
std::unique_ptr<Scene> LoadMeshSequenceScene(const std::string& arg, int fps, std::string& error);

}  // namespace kv::standalone
