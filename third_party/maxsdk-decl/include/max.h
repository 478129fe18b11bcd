// Declarations-only stand-in for the part of the 3ds Max 2023 SDK core headers that the KV Cache
// binding uses. Names, signatures and constant values follow the SDK reference; class layouts
// and vtables do not (only the members the binding touches are declared). See ../README.md.
#pragma once

#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
// The SDK's own member names that Win32 would otherwise rename to their W forms.
#undef GetClassName

#include <cstddef>

#include "baseinterface.h"
#include "tab.h"

// ---- versions (plugapi.h, maxversion.h)
#define MAX_RELEASE 25000
#define MAX_API_NUM 62
#define MAX_SDK_REV 0
#define VERSION_3DSMAX ((MAX_RELEASE << 16) + (MAX_API_NUM << 8) + MAX_SDK_REV)

// ---- basic types (strbasic.h, maxtypes.h)
typedef wchar_t MCHAR;
#define _M(x) L##x
typedef int TimeValue;
typedef ULONG SClass_ID;
typedef unsigned short MtlID;
typedef unsigned long ulong;
typedef ULONG_PTR PartID;
typedef unsigned int RefMessage;
class ReferenceTarget;
typedef ReferenceTarget* RefTargetHandle;

#define GEOMOBJECT_CLASS_ID 0x000010
#define CAMERA_CLASS_ID 0x000020
#define HELPER_CLASS_ID 0x000070
#define LIGHT_CLASS_ID 0x000030
#define SHAPE_CLASS_ID 0x000040
#define CTRL_FLOAT_CLASS_ID 0x9003
#define CTRL_POINT3_CLASS_ID 0x900b
#define CTRL_MATRIX3_CLASS_ID 0x9008
#define CTRL_POSITION_CLASS_ID 0x900c
#define CTRL_ROTATION_CLASS_ID 0x900d
#define CTRL_SCALE_CLASS_ID 0x900e
#define TRIOBJ_CLASS_ID 0x0009
#define POINTHELP_CLASS_ID 0x00002013
#define PRS_CONTROL_CLASS_ID 0x00002005
#define ATTEN_END 3

#define PART_GEOM (1 << 1)
#define PART_TOPO (1 << 0)
#define PART_TEXMAP (1 << 2)
#define PART_MTL (1 << 3)
#define PART_SELECT (1 << 4)
#define PART_DISPLAY (1 << 6)
#define PART_ALL 0xFFFFFFFF
#define REFMSG_CHANGE 0x00000001
#define REDRAW_NORMAL (1 << 1)
#define A_IS_DELETED (1 << 14)

class Class_ID {
 public:
  Class_ID() : a(0xFFFFFFFF), b(0xFFFFFFFF) {}
  Class_ID(ULONG aa, ULONG bb) : a(aa), b(bb) {}
  ULONG PartA() const { return a; }
  ULONG PartB() const { return b; }
  int operator==(const Class_ID& cid) const { return a == cid.a && b == cid.b; }
  int operator!=(const Class_ID& cid) const { return !(*this == cid); }

 private:
  ULONG a, b;
};

// ---- strings (strclass.h)
class WStr {
 public:
  WStr();
  WStr(const wchar_t* cs);
  WStr(const WStr& ws);
  ~WStr();
  WStr& operator=(const WStr& ws);
  WStr& operator=(const wchar_t* cs);
  const wchar_t* data() const;
  int Length() const;

 private:
  wchar_t* buf_;
};
typedef WStr MSTR;

// ---- geometry (point3.h, ipoint2.h, matrix3.h, interval.h)
class Point3 {
 public:
  float x, y, z;
  Point3() : x(0), y(0), z(0) {}
  Point3(float X, float Y, float Z) : x(X), y(Y), z(Z) {}
};
class IPoint2 {
 public:
  int x, y;
};
class Matrix3 {
 public:
  Matrix3();
  Point3& operator[](int i);
  const Point3& operator[](int i) const;
  void SetTrans(const Point3 p);
  Point3 GetTrans() const;
  void SetRow(int i, Point3 p);
  Point3 GetRow(int i) const;
  void IdentityMatrix();

 private:
  Point3 m[4];
  DWORD flags;
};
class Quat {
 public:
  float x, y, z, w;
};
struct ScaleValue {
  Point3 s;
  Quat q;
};
class Interval {
 public:
  Interval(TimeValue s, TimeValue e);
  Interval();
  TimeValue Start() const;
  TimeValue End() const;
  void SetStart(TimeValue s);
  void SetEnd(TimeValue e);
  void SetInstant(const TimeValue t);
  void SetEmpty();

 private:
  TimeValue start, end;
};
#define TIME_NegInfinity TimeValue(0x80000000)
#define TIME_PosInfinity TimeValue(0x7fffffff)
#define FOREVER Interval(TIME_NegInfinity, TIME_PosInfinity)
#define NEVER Interval(TIME_NegInfinity, TIME_NegInfinity)

// ---- time (maxapi.h)
int GetTicksPerFrame();
int GetFrameRate();
BOOL Animating();
void SuspendAnimate();
void ResumeAnimate();

// ---- mesh (mesh.h)
class GraphicsWindow;
class Material;
class HitRegion;
class InterfaceServer;
class Box3 {
 public:
  Point3 pmin, pmax;
  Box3();
  Box3(const Point3& p, const Point3& q);
  void Init();
};
class Face {
 public:
  DWORD v[3];
  DWORD smGroup;
  DWORD flags;
  void setVerts(DWORD va, DWORD vb, DWORD vc);
  void setSmGroup(DWORD i);
  void setMatID(MtlID id);
  void setEdgeVisFlags(int va, int vb, int vc);
  MtlID getMatID();
  DWORD getEdgeVis(int edge);
};
class TVFace {
 public:
  DWORD t[3];
  void setTVerts(DWORD a, DWORD b, DWORD c);
};
typedef Point3 UVVert;
class Mesh {
 public:
  Mesh();
  ~Mesh();
  BOOL setNumVerts(int ct, BOOL keep = FALSE, BOOL synchSel = TRUE);
  int getNumVerts() const;
  BOOL setNumFaces(int ct, BOOL keep = FALSE, BOOL synchSel = TRUE);
  int getNumFaces() const;
  void setVert(int i, const Point3& xyz);
  Point3& getVert(int i);
  int getNumMaps() const;
  BOOL mapSupport(int mp) const;
  int getNumMapVerts(int mp) const;
  UVVert* mapVerts(int mp) const;
  void setNumMaps(int ct, BOOL keep = FALSE);
  void setMapSupport(int mp, BOOL support = TRUE);
  void setNumMapVerts(int mp, int ct, BOOL keep = FALSE);
  void setMapVert(int mp, int i, const UVVert& xyz);
  TVFace* mapFaces(int mp);
  void InvalidateGeomCache();
  void InvalidateTopologyCache();
  void FreeAll();
  void render(GraphicsWindow* gw, Material* ma, RECT* rp, int compFlags, int numMat = 1,
              InterfaceServer* pi = nullptr);
  BOOL select(GraphicsWindow* gw, Material* ma, HitRegion* hr, int abortOnHit = FALSE,
              int numMat = 1);

  Point3* verts;
  Face* faces;
};

// ---- animation (animtbl.h, control.h)
enum GetSetMethod { CTRL_RELATIVE, CTRL_ABSOLUTE };
// Track edit flags: whether an interval's ends are included.
#define TIME_INCLEFT (1 << 10)
#define TIME_INCRIGHT (1 << 11)
// A copied stretch of track, owned by whoever asked for it.
class TrackClipObject {
 public:
  Interval clip;
  explicit TrackClipObject(Interval iv) : clip(iv) {}
  virtual ~TrackClipObject();
  virtual SClass_ID SuperClassID() = 0;
  virtual Class_ID ClassID() = 0;
  virtual void DeleteThis() = 0;
  virtual int NumKeys();
};
class InterfaceServer {
 public:
  virtual ~InterfaceServer();
  virtual BaseInterface* GetInterface(Interface_ID id);
};
class Animatable : public InterfaceServer {
 public:
  BOOL TestAFlag(DWORD mask) const;
  virtual SClass_ID SuperClassID();
  virtual Class_ID ClassID();
  virtual int NumKeys();
  virtual TimeValue GetKeyTime(int index);
  virtual int GetKeyIndex(TimeValue t);
  virtual void DeleteKeyByIndex(int index);
  virtual void DeleteThis();
  virtual void* GetInterface(ULONG id);
  BaseInterface* GetInterface(Interface_ID id) override;
  virtual BOOL CanCopyTrack(Interval iv, DWORD flags);
  virtual BOOL CanPasteTrack(TrackClipObject* cobj, Interval iv, DWORD flags);
  virtual TrackClipObject* CopyTrack(Interval iv, DWORD flags);
  virtual void PasteTrack(TrackClipObject* cobj, Interval iv, DWORD flags);
};
enum RefResult { REF_FAIL, REF_SUCCEED, REF_DONTCARE, REF_STOP, REF_INVALID };
#define NOTIFY_ALL 0xfffffff0
class ILoad;
class ISave;
enum IOResult { IO_OK = 0, IO_END = 1, IO_ERROR = 2 };
class ReferenceMaker : public Animatable {
 public:
  virtual IOResult Save(ISave* isave);
  virtual IOResult Load(ILoad* iload);
};
class RemapDir;
class ReferenceTarget : public ReferenceMaker {
 public:
  virtual ReferenceTarget* Clone(RemapDir& remap);
  virtual void BaseClone(ReferenceTarget* from, ReferenceTarget* to, RemapDir& remap);
  RefResult NotifyDependents(const Interval& changeInt, PartID partID, RefMessage message,
                             SClass_ID sclass = NOTIFY_ALL, BOOL propagate = TRUE,
                             RefTargetHandle hTarg = nullptr);
};
class Control : public ReferenceTarget {
 public:
  virtual void GetValue(TimeValue t, void* val, Interval& valid,
                        GetSetMethod method = CTRL_ABSOLUTE) = 0;
  virtual void SetValue(TimeValue t, void* val, int commit = 1,
                        GetSetMethod method = CTRL_ABSOLUTE) = 0;
  virtual void Copy(Control* from) = 0;
  virtual Control* GetPositionController();
  virtual Control* GetRotationController();
  virtual Control* GetScaleController();
  virtual BOOL SetPositionController(Control* c);
  virtual BOOL SetRotationController(Control* c);
  virtual BOOL SetScaleController(Control* c);
};
// Setting a transform controller's value (control.h).
enum SetXFormCommand { XFORM_MOVE, XFORM_ROTATE, XFORM_SCALE, XFORM_SET };
class SetXFormPacket {
 public:
  SetXFormCommand command;
  Matrix3 tmParent;
  Matrix3 tmAxis;
  Point3 p;
  Quat q;
  BOOL localOrigin;
  SetXFormPacket(const Matrix3& mat, const Matrix3& par);
};
Control* NewDefaultFloatController();
Control* NewDefaultPoint3Controller();
Control* NewDefaultMatrix3Controller();
Control* NewDefaultPositionController();
Control* NewDefaultRotationController();
Control* NewDefaultScaleController();
ReferenceTarget* CloneRefHierarchy(ReferenceTarget* rm);
void AnimateOn();
void AnimateOff();

// ---- keyframe controllers and their keys (istdplug.h, AnimatableInterfaceIDs.h)
#define LININTERP_FLOAT_CLASS_ID 0x2001
#define LININTERP_POSITION_CLASS_ID 0x2002
#define LININTERP_ROTATION_CLASS_ID 0x2003
#define LININTERP_SCALE_CLASS_ID 0x2004
#define HYBRIDINTERP_FLOAT_CLASS_ID 0x2007
#define HYBRIDINTERP_POSITION_CLASS_ID 0x2008
#define HYBRIDINTERP_ROTATION_CLASS_ID 0x2009
#define HYBRIDINTERP_POINT3_CLASS_ID 0x200A
#define HYBRIDINTERP_SCALE_CLASS_ID 0x2010
#define TCBINTERP_FLOAT_CLASS_ID 0x442311
#define TCBINTERP_POSITION_CLASS_ID 0x442312
#define TCBINTERP_ROTATION_CLASS_ID 0x442313
#define TCBINTERP_POINT3_CLASS_ID 0x442314
#define TCBINTERP_SCALE_CLASS_ID 0x442315
#define I_KEYCONTROL 0x00001100
class AngAxis {
 public:
  Point3 axis;
  float angle;
};
class IKey {
 public:
  TimeValue time;
  DWORD flags;
};
class ITCBKey : public IKey {
 public:
  float tens, cont, bias, easeIn, easeOut;
};
class ITCBFloatKey : public ITCBKey {
 public:
  float val;
};
class ITCBPoint3Key : public ITCBKey {
 public:
  Point3 val;
};
class ITCBRotKey : public ITCBKey {
 public:
  AngAxis val;
};
class ITCBScaleKey : public ITCBKey {
 public:
  ScaleValue val;
};
class IKeyControl {
 public:
  virtual int GetNumKeys() = 0;
  virtual void SetNumKeys(int n) = 0;
  virtual void GetKey(int i, IKey* key) = 0;
  virtual void SetKey(int i, IKey* key) = 0;
  virtual int AppendKey(IKey* key) = 0;
  virtual void SortKeys() = 0;
  virtual DWORD& GetTrackFlags() = 0;
  virtual int GetKeySize();
};
#define GetKeyControlInterface(anim) ((IKeyControl*)(anim)->GetInterface(I_KEYCONTROL))

// ---- undo (hold.h)
class RestoreObj : public InterfaceServer {
 public:
  virtual void Restore(int isUndo) = 0;
  virtual void Redo() = 0;
  virtual int Size();
  virtual void EndHold();
  virtual MSTR Description();
};
class Hold {
 public:
  // True while an undo or redo is putting records back.
  int RestoreOrRedoing();
  void Begin();
  void Put(RestoreObj* rob);
  void Accept(const MCHAR* nm);
  void Cancel();
  int Holding();
  void Suspend();
  void Resume();
  int IsSuspended();
};
extern Hold theHold;

// ---- scene file (ioapi.h)
class ISave {
 public:
  virtual void BeginChunk(USHORT id) = 0;
  virtual void EndChunk() = 0;
  virtual IOResult Write(const void* buf, ULONG nbytes, ULONG* nwrit) = 0;
};
class ILoad {
 public:
  virtual IOResult OpenChunk() = 0;
  virtual USHORT CurChunkID() = 0;
  virtual IOResult CloseChunk() = 0;
  virtual IOResult Read(void* buf, ULONG nbytes, ULONG* nread) = 0;
};

// ---- materials (imtl.h)
class MtlBase : public ReferenceTarget {
 public:
  MSTR& GetName();
  void SetName(MSTR s);
};
#define MATERIAL_CLASS_ID 0xc00
class Mtl : public MtlBase {
 public:
  virtual int NumSubMtls();
  virtual Mtl* GetSubMtl(int i);
};
class MtlBaseLib : public ReferenceTarget {
 public:
  MtlBaseLib();
  ~MtlBaseLib();
  int Add(MtlBase* m);
  int Count();
  MtlBase*& operator[](const int i);
  void DeleteAll();
};
class MultiMtl : public Mtl {
 public:
  virtual void SetNumSubMtls(int n) = 0;
  virtual void SetSubMtl(int i, Mtl* m) = 0;
};
MultiMtl* NewDefaultMultiMtl();
#define MULTI_MATERIAL_CLASS_ID 0x00000200

// ---- objects and nodes (object.h, inode.h)
class Object;
class ObjectState {
 public:
  Object* obj;
};
class INode : public ReferenceTarget {
 public:
  virtual const MCHAR* GetName() = 0;
  virtual void SetName(const MCHAR* s) = 0;
  virtual INode* GetParentNode() = 0;
  virtual int NumberOfChildren() = 0;
  virtual INode* GetChildNode(int i) = 0;
  virtual Matrix3 GetNodeTM(TimeValue t, Interval* valid = nullptr) = 0;
  virtual Matrix3 GetObjectTM(TimeValue time, Interval* valid = nullptr) = 0;
  virtual float GetVisibility(TimeValue t, Interval* valid = nullptr) = 0;
  virtual Object* GetObjectRef() = 0;
  virtual Mtl* GetMtl() = 0;
  virtual void SetMtl(Mtl* matl) = 0;
  virtual DWORD GetWireColor() = 0;
  virtual void SetWireColor(DWORD newcol) = 0;
  virtual int Selected() = 0;
  virtual int IsHidden(DWORD hflags = 0, BOOL forRenderer = FALSE) = 0;
  virtual void Hide(BOOL onOff) = 0;
  virtual Control* GetTMController() = 0;
  virtual Control* GetVisController() = 0;
  virtual BOOL SetTMController(Control* m3cont) = 0;
  virtual void SetVisController(Control* cont) = 0;
  virtual BOOL GetInheritVisibility() = 0;
  virtual void SetInheritVisibility(BOOL onOff) = 0;
  virtual int Renderable() = 0;
  virtual void SetRenderable(BOOL onOff) = 0;
  virtual int CastShadows() = 0;
  virtual void SetCastShadows(BOOL onOff) = 0;
  virtual int RcvShadows() = 0;
  virtual void SetRcvShadows(BOOL onOff) = 0;
  virtual int GetBoxMode() = 0;
  virtual void BoxMode(int onOff) = 0;
  virtual int GetBackCull() = 0;
  virtual void BackCull(BOOL onOff) = 0;
  virtual ObjectState EvalWorldState(TimeValue time, BOOL evalHidden = TRUE) = 0;
};

class PickModeCallback;
class PickNodeCallback;
// Sub-object hits (hitrec.h).
class ModContext;
class HitData;
class HitRecord {
 public:
  INode* nodeRef;
  ModContext* modContext;
  DWORD distance;
  ulong hitInfo;
  HitData* hitData;
  HitRecord* Next();
};
class ViewExp {
 public:
  virtual void LogHit(INode* nr, ModContext* mc, DWORD dist, ulong info,
                      HitData* hitdat = nullptr) = 0;
  virtual INode* GetClosestHit() = 0;
  virtual GraphicsWindow* getGW() = 0;
  virtual Point3 SnapPoint(const IPoint2& in, IPoint2& out, Matrix3* plane2d = nullptr,
                           DWORD flags = 0) = 0;
};

#define HITTYPE_POINT 1
#define HITTYPE_BOX 2
#define HITTYPE_CIRCLE 3
#define HITTYPE_SOLID 4
#define HITTYPE_FENCE 5

#define MOUSE_ABORT 0
#define MOUSE_POINT 1
#define MOUSE_MOVE 2
#define CREATE_CONTINUE 1
#define CREATE_STOP 0
#define CREATE_ABORT -1

class CreateMouseCallBack {
 public:
  virtual ~CreateMouseCallBack();
  virtual int proc(ViewExp* vpt, int msg, int point, int flags, IPoint2 m, Matrix3& mat) = 0;
};

class IObjParam;
// Sub-object levels (object.h, cmdmode.h, GenSubObjType.h).
class CommandMode {
 public:
  virtual ~CommandMode();
};
class XFormModes {
 public:
  CommandMode* move;
  CommandMode* rotate;
  CommandMode* scale;
  CommandMode* uscale;
  CommandMode* squash;
  CommandMode* select;
  XFormModes(CommandMode* move, CommandMode* rotate, CommandMode* scale, CommandMode* uscale,
             CommandMode* squash, CommandMode* select);
};
class ISubObjType {
 public:
  virtual ~ISubObjType();
};
class GenSubObjType : public ISubObjType {
 public:
  GenSubObjType(const MCHAR* nm, const MCHAR* pBitmapName, int nIndex);
  ~GenSubObjType() override;

 private:
  MSTR name;
};
class SubObjAxisCallback {
 public:
  virtual ~SubObjAxisCallback();
  virtual void Center(Point3 c, int id) = 0;
  virtual void TM(Matrix3 tm, int id) = 0;
  virtual int Type() = 0;
};
class IObjParam;
class BaseObject : public ReferenceTarget {
 public:
  virtual CreateMouseCallBack* GetCreateMouseCallBack() = 0;
  virtual void BeginEditParams(IObjParam* ip, ULONG flags, Animatable* prev = nullptr);
  virtual void EndEditParams(IObjParam* ip, ULONG flags, Animatable* next = nullptr);
  virtual void GetClassName(MSTR& s, bool localized = true) const;
  virtual int Display(TimeValue t, INode* inode, ViewExp* vpt, int flags);
  virtual int HitTest(TimeValue t, INode* inode, int type, int crossing, int flags, IPoint2* p,
                      ViewExp* vpt);
  virtual void GetWorldBoundBox(TimeValue t, INode* inode, ViewExp* vp, Box3& box);
  virtual void GetLocalBoundBox(TimeValue t, INode* inode, ViewExp* vp, Box3& box);
  virtual int HitTest(TimeValue t, INode* inode, int type, int crossing, int flags, IPoint2* p,
                      ViewExp* vpt, ModContext* mc);
  virtual void SelectSubComponent(HitRecord* hitRec, BOOL selected, BOOL all, BOOL invert = FALSE);
  virtual void ClearSelection(int selLevel);
  virtual void ActivateSubobjSel(int level, XFormModes& modes);
  virtual int NumSubObjTypes();
  virtual ISubObjType* GetSubObjType(int i);
  virtual void GetSubObjectCenters(SubObjAxisCallback* cb, TimeValue t, INode* node,
                                   ModContext* mc);
  virtual void GetSubObjectTMs(SubObjAxisCallback* cb, TimeValue t, INode* node, ModContext* mc);
  virtual void Move(TimeValue t, Matrix3& partm, Matrix3& tmAxis, Point3& val,
                    BOOL localOrigin = FALSE);
  virtual void Rotate(TimeValue t, Matrix3& partm, Matrix3& tmAxis, Quat& val,
                      BOOL localOrigin = FALSE);
  virtual void Scale(TimeValue t, Matrix3& partm, Matrix3& tmAxis, Point3& val,
                     BOOL localOrigin = FALSE);
};
class Object : public BaseObject {
 public:
  virtual int CanConvertToType(Class_ID obtype);
  virtual Object* ConvertToType(TimeValue t, Class_ID obtype);
};
class GeomObject : public Object {};
class TriObject : public GeomObject {
 public:
  Mesh mesh;
  Mesh& GetMesh() { return mesh; }
};
TriObject* CreateNewTriObject();
class LightObject : public Object {
 public:
  virtual float GetAtten(TimeValue t, int which, Interval& valid) = 0;
};

// ---- custom controls (custcont.h)
#define CC_SPINNER_CHANGE (WM_USER + 600)
#define CC_SPINNER_BUTTONDOWN (WM_USER + 601)
#define CC_SPINNER_BUTTONUP (WM_USER + 602)
enum EditSpinnerType {
  EDITTYPE_INT,
  EDITTYPE_FLOAT,
  EDITTYPE_UNIVERSE,
  EDITTYPE_POS_INT,
  EDITTYPE_POS_FLOAT,
  EDITTYPE_POS_UNIVERSE,
  EDITTYPE_TIME,
};
enum CustButType { CBT_PUSH, CBT_CHECK };
class ICustomControl : public InterfaceServer {
 public:
  virtual HWND GetHwnd() = 0;
  virtual void Enable(BOOL onOff = TRUE) = 0;
  virtual void Disable() = 0;
  virtual BOOL IsEnabled() = 0;
};
class ISpinnerControl : public ICustomControl {
 public:
  virtual float GetFVal() = 0;
  virtual int GetIVal() = 0;
  virtual void SetScale(float s) = 0;
  virtual void SetValue(float v, int notify) = 0;
  virtual void SetValue(int v, int notify) = 0;
  virtual void SetLimits(int min, int max, int limitCurValue = TRUE) = 0;
  virtual void SetLimits(float min, float max, int limitCurValue = TRUE) = 0;
  virtual void LinkToEdit(HWND hEdit, EditSpinnerType type) = 0;
};
ISpinnerControl* GetISpinner(HWND hCtrl);
void ReleaseISpinner(ISpinnerControl* isc);
class ICustButton : public ICustomControl {
 public:
  virtual void SetText(const MCHAR* text) = 0;
  virtual void SetType(CustButType type) = 0;
  virtual void SetCheck(BOOL checked) = 0;
  virtual BOOL IsChecked() = 0;
};
ICustButton* GetICustButton(HWND hCtrl);
void ReleaseICustButton(ICustButton* icb);

// ---- select by name (maxapi.h)
class INodeTab : public Tab<INode*> {};
class HitByNameDlgCallback {
 public:
  virtual ~HitByNameDlgCallback();
  virtual const MCHAR* dialogTitle();
  virtual const MCHAR* buttonText();
  virtual BOOL singleSelect();
  virtual BOOL useFilter();
  virtual int filter(INode* node);
  virtual BOOL useProc();
  virtual void proc(INodeTab& nodeTab);
  virtual BOOL doCustomHilite();
  virtual BOOL doHilite(INode* node);
  virtual BOOL showHiddenAndFrozen();
};

// ---- broadcast notifications (notify.h)
#define NOTIFY_PRE_RENDER 0x00000014
#define NOTIFY_POST_RENDER 0x00000015
struct NotifyInfo {
  int intcode;
  void* callParam;
};
typedef void (*NOTIFYPROC)(void* param, NotifyInfo* info);
int RegisterNotification(NOTIFYPROC proc, void* param, int code);
int UnRegisterNotification(NOTIFYPROC proc, void* param, int code);

// ---- the application (maxapi.h)
#define APPENDROLL_CLOSED (1 << 0)
#define ROLLUP_CAT_STANDARD 4000
class Interface {
 public:
  virtual HWND GetMAXHWnd() const = 0;
  virtual TimeValue GetTime() = 0;
  virtual void SetTime(TimeValue t, BOOL redraw = TRUE) = 0;
  virtual Interval GetAnimRange() = 0;
  virtual BOOL IsAnimPlaying() = 0;
  virtual BOOL IsNetServer() = 0;
  virtual void RedrawViews(TimeValue t, DWORD vpFlags = REDRAW_NORMAL,
                           ReferenceTarget* change = nullptr) = 0;
  virtual INode* GetRootNode() = 0;
  virtual INode* GetINodeByName(const MCHAR* name) = 0;
  virtual int GetSelNodeCount() = 0;
  virtual INode* GetSelNode(int i) = 0;
  virtual void ClearNodeSelection(BOOL redraw = TRUE) = 0;
  virtual void SelectNode(INode* node, int clearSel = 1) = 0;
  virtual void DeSelectNode(INode* node) = 0;
  virtual BOOL DoHitByNameDialog(HitByNameDlgCallback* hbncb = nullptr) = 0;
  virtual void MakeNameUnique(MSTR& name) = 0;
  virtual INode* CreateObjectNode(Object* obj) = 0;
  virtual void* CreateInstance(SClass_ID superID, Class_ID classID) = 0;
  virtual void DeleteNode(INode* node, BOOL redraw = TRUE, BOOL overrideSlaves = FALSE) = 0;
  virtual void ReplacePrompt(const MCHAR* s) = 0;
  virtual void PushPrompt(const MCHAR* s) = 0;
  virtual void PopPrompt() = 0;
  virtual void SetPickMode(PickModeCallback* p) = 0;
  virtual void DeleteMode(CommandMode* m) = 0;
  virtual INode* PickNode(HWND hWnd, IPoint2 pt, PickNodeCallback* filt = nullptr) = 0;
  virtual BOOL ProgressStart(const MCHAR* title, BOOL dispBar, LPTHREAD_START_ROUTINE fn,
                             LPVOID arg) = 0;
  virtual void ProgressUpdate(int pct, BOOL showPct = TRUE, const MCHAR* title = nullptr) = 0;
  virtual void ProgressEnd() = 0;
  virtual BOOL GetCancel() = 0;
  virtual void SetCancel(BOOL sw) = 0;
  virtual HWND AddRollupPage(HINSTANCE hInst, const MCHAR* dlgTemplate, DLGPROC dlgProc,
                             const MCHAR* title, LPARAM param = 0, DWORD flags = 0,
                             int category = ROLLUP_CAT_STANDARD) = 0;
  virtual void DeleteRollupPage(HWND hRollup) = 0;
  virtual int LoadMaterialLib(const MCHAR* name, MtlBaseLib* lib = nullptr) = 0;
  virtual int SaveMaterialLib(const MCHAR* name, MtlBaseLib* lib = nullptr) = 0;
};
class IObjParam : public Interface {};

// Viewport picking (mouseman.h, maxapi.h).
class PickNodeCallback {
 public:
  virtual ~PickNodeCallback();
  virtual BOOL Filter(INode* node) = 0;
};
class PickModeCallback : public InterfaceServer {
 public:
  virtual BOOL HitTest(IObjParam* ip, HWND hWnd, ViewExp* vpt, IPoint2 m, int flags) = 0;
  virtual BOOL Pick(IObjParam* ip, ViewExp* vpt) = 0;
  virtual void EnterMode(IObjParam* ip);
  virtual void ExitMode(IObjParam* ip);
  virtual PickNodeCallback* GetFilter();
};
void EnableAccelerators();
void DisableAccelerators();
Interface* GetCOREInterface();
