// Declarations-only stand-in: the viewport graphics window (gfx.h, hitregion) as far as the
// KV Cache binding uses it. See ../README.md.
#pragma once

#include "max.h"

// Render limits and modes.
#define GW_WIREFRAME 0x0000001
#define GW_ILLUM 0x0000002
#define GW_FLAT 0x0000004
#define GW_SPECULAR 0x0000008
#define GW_TEXTURE 0x0000010
#define GW_Z_BUFFER 0x0000020
#define GW_PERSP_CORRECT 0x0000040
#define GW_POLY_EDGES 0x0000080
#define GW_BACKCULL 0x0000100
#define GW_TWO_SIDED 0x0000200
#define GW_PICK 0x0001000
#define GW_BOX_MODE 0x0002000
#define GW_ALL_EDGES 0x0004000

// Hit regions.
#define POINT_RGN 0x0001
#define RECT_RGN 0x0002
#define CIRCLE_RGN 0x0004
#define FENCE_RGN 0x0008

struct CIRCLE {
  LONG x;
  LONG y;
  LONG r;
};

class HitRegion {
 public:
  DWORD type;
  int dir;
  int crossing;
  int epsilon;
  union {
    POINT pt;
    RECT rect;
    CIRCLE circle;
    POINT* pts;
  };
};

enum MarkerType {
  POINT_MRKR,
  HOLLOW_BOX_MRKR,
  PLUS_SIGN_MRKR,
  ASTERISK_MRKR,
  X_MRKR,
  BIG_BOX_MRKR,
  CIRCLE_MRKR,
  TRIANGLE_MRKR,
  DIAMOND_MRKR,
  SM_HOLLOW_BOX_MRKR,
  SM_CIRCLE_MRKR,
  SM_TRIANGLE_MRKR,
  SM_DIAMOND_MRKR,
  DOT_MRKR,
  SM_DOT_MRKR,
};

enum ColorType { LINE_COLOR, FILL_COLOR, TEXT_COLOR, CLEAR_COLOR };

class Material {
 public:
  Material();
  Point3 Ka;
  Point3 Kd;
  Point3 Ks;
  float shininess;
  float shinStrength;
  float opacity;
  float selfIllum;
  int dblSided;
  int shadeLimit;
};

class GraphicsWindow {
 public:
  virtual void setTransform(const Matrix3& m) = 0;
  virtual Matrix3 getTransform() = 0;
  virtual void setRndLimits(DWORD l) = 0;
  virtual DWORD getRndLimits() = 0;
  virtual DWORD getRndMode() = 0;
  virtual void setColor(ColorType t, float r, float g, float b) = 0;
  virtual void setMaterial(const Material& m, int index = 0) = 0;
  virtual void polyline(int ct, Point3* xyz, Point3* rgb, int closed, int* es) = 0;
  virtual void marker(Point3* xyz, MarkerType type) = 0;
  virtual void setHitRegion(HitRegion* rgn) = 0;
  virtual void clearHitCode() = 0;
  virtual BOOL checkHitCode() = 0;
  virtual DWORD getHitDistance() = 0;
};
