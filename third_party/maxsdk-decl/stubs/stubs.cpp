// Empty bodies for the stand-in declarations, so that the plug-in links on a machine without the
// SDK. They make the link complete, not a working host: nothing here is ever run by 3ds Max,
// which brings its own implementations.
#include <cstring>

#include "gfx.h"
#include "iparamb2.h"
#include "max.h"
#include "objmode.h"
#include "simpobj.h"

WStr::WStr() : buf_(nullptr) {}
WStr::WStr(const wchar_t*) : buf_(nullptr) {}
WStr::WStr(const WStr&) : buf_(nullptr) {}
WStr::~WStr() {}
WStr& WStr::operator=(const WStr&) {
  return *this;
}
WStr& WStr::operator=(const wchar_t*) {
  return *this;
}
const wchar_t* WStr::data() const {
  return L"";
}
int WStr::Length() const {
  return 0;
}

Matrix3::Matrix3() : flags(0) {}
Point3& Matrix3::operator[](int i) {
  return m[i];
}
const Point3& Matrix3::operator[](int i) const {
  return m[i];
}
void Matrix3::SetTrans(const Point3 p) {
  m[3] = p;
}
Point3 Matrix3::GetTrans() const {
  return m[3];
}
void Matrix3::SetRow(int i, Point3 p) {
  m[i] = p;
}
Point3 Matrix3::GetRow(int i) const {
  return m[i];
}
void Matrix3::IdentityMatrix() {}

Interval::Interval(TimeValue s, TimeValue e) : start(s), end(e) {}
Interval::Interval() : start(0), end(0) {}
TimeValue Interval::Start() const {
  return start;
}
TimeValue Interval::End() const {
  return end;
}
void Interval::SetStart(TimeValue s) {
  start = s;
}
void Interval::SetEnd(TimeValue e) {
  end = e;
}
void Interval::SetInstant(const TimeValue t) {
  start = end = t;
}

int GetTicksPerFrame() {
  return 160;
}
int GetFrameRate() {
  return 30;
}
BOOL Animating() {
  return FALSE;
}
void SuspendAnimate() {}
void ResumeAnimate() {}

void Face::setVerts(DWORD, DWORD, DWORD) {}
void Face::setSmGroup(DWORD) {}
void Face::setMatID(MtlID) {}
void Face::setEdgeVisFlags(int, int, int) {}
MtlID Face::getMatID() {
  return 0;
}
DWORD Face::getEdgeVis(int) {
  return 0;
}
void TVFace::setTVerts(DWORD, DWORD, DWORD) {}
Mesh::Mesh() : verts(nullptr), faces(nullptr) {}
Mesh::~Mesh() {}
BOOL Mesh::setNumVerts(int, BOOL, BOOL) {
  return FALSE;
}
int Mesh::getNumVerts() const {
  return 0;
}
BOOL Mesh::setNumFaces(int, BOOL, BOOL) {
  return FALSE;
}
int Mesh::getNumFaces() const {
  return 0;
}
void Mesh::setVert(int, const Point3&) {}
Point3& Mesh::getVert(int i) {
  return verts[i];
}
int Mesh::getNumMaps() const {
  return 0;
}
BOOL Mesh::mapSupport(int) const {
  return FALSE;
}
int Mesh::getNumMapVerts(int) const {
  return 0;
}
UVVert* Mesh::mapVerts(int) const {
  return nullptr;
}
void Mesh::setNumMaps(int, BOOL) {}
void Mesh::setMapSupport(int, BOOL) {}
void Mesh::setNumMapVerts(int, int, BOOL) {}
void Mesh::setMapVert(int, int, const UVVert&) {}
TVFace* Mesh::mapFaces(int) {
  return nullptr;
}
void Mesh::InvalidateGeomCache() {}
void Mesh::InvalidateTopologyCache() {}
void Mesh::FreeAll() {}

InterfaceServer::~InterfaceServer() {}
BOOL Animatable::TestAFlag(DWORD) const {
  return FALSE;
}
SClass_ID Animatable::SuperClassID() {
  return 0;
}
Class_ID Animatable::ClassID() {
  return Class_ID();
}
int Animatable::NumKeys() {
  return 0;
}
TimeValue Animatable::GetKeyTime(int) {
  return 0;
}
int Animatable::GetKeyIndex(TimeValue) {
  return -1;
}
void Animatable::DeleteKeyByIndex(int) {}
void Animatable::DeleteThis() {}
void* Animatable::GetInterface(ULONG) {
  return nullptr;
}
BaseInterface* Animatable::GetInterface(Interface_ID) {
  return nullptr;
}
BOOL Animatable::CanCopyTrack(Interval, DWORD) {
  return FALSE;
}
BOOL Animatable::CanPasteTrack(TrackClipObject*, Interval, DWORD) {
  return FALSE;
}
TrackClipObject* Animatable::CopyTrack(Interval, DWORD) {
  return nullptr;
}
void Animatable::PasteTrack(TrackClipObject*, Interval, DWORD) {}
TrackClipObject::~TrackClipObject() {}
int TrackClipObject::NumKeys() {
  return 0;
}
int IKeyControl::GetKeySize() {
  return 0;
}
IOResult ReferenceMaker::Save(ISave*) {
  return IO_OK;
}
IOResult ReferenceMaker::Load(ILoad*) {
  return IO_OK;
}
RefResult ReferenceTarget::NotifyDependents(const Interval&, PartID, RefMessage, SClass_ID, BOOL,
                                            RefTargetHandle) {
  return REF_SUCCEED;
}
Control* Control::GetPositionController() {
  return nullptr;
}
Control* Control::GetRotationController() {
  return nullptr;
}
Control* Control::GetScaleController() {
  return nullptr;
}

int RestoreObj::Size() {
  return 1;
}
void RestoreObj::EndHold() {}
MSTR RestoreObj::Description() {
  return MSTR();
}
int Hold::RestoreOrRedoing() {
  return 0;
}
void Hold::Begin() {}
void Hold::Put(RestoreObj* rob) {
  delete rob;
}
void Hold::Accept(const MCHAR*) {}
void Hold::Cancel() {}
int Hold::Holding() {
  return 0;
}
void Hold::Suspend() {}
void Hold::Resume() {}
int Hold::IsSuspended() {
  return 0;
}
Hold theHold;

MSTR& MtlBase::GetName() {
  static MSTR name;
  return name;
}
void MtlBase::SetName(MSTR) {}
int Mtl::NumSubMtls() {
  return 0;
}
Mtl* Mtl::GetSubMtl(int) {
  return nullptr;
}

CreateMouseCallBack::~CreateMouseCallBack() {}
void BaseObject::BeginEditParams(IObjParam*, ULONG, Animatable*) {}
void BaseObject::EndEditParams(IObjParam*, ULONG, Animatable*) {}
void BaseObject::GetClassName(MSTR&, bool) const {}
int Object::CanConvertToType(Class_ID) {
  return 0;
}
Interface* GetCOREInterface() {
  return nullptr;
}

ClassDesc::~ClassDesc() {}
int ClassDesc::BeginCreate(Interface*) {
  return 0;
}
int ClassDesc::EndCreate(Interface*) {
  return 0;
}
BOOL ClassDesc::OkToCreate(Interface*) {
  return TRUE;
}
const MCHAR* ClassDesc::InternalName() {
  return nullptr;
}
HINSTANCE ClassDesc::HInstance() {
  return nullptr;
}
DWORD ClassDesc::InitialRollupPageState() {
  return 0x7fffffff;
}

PBValidator::~PBValidator() {}
PBAccessor::~PBAccessor() {}
MSTR PBAccessor::GetLocalName(ReferenceMaker*, ParamID, int, bool) {
  return MSTR();
}
ParamBlockDesc2::ParamBlockDesc2(BlockID, const MCHAR*, StringResID, ClassDesc2*, USHORT, ...) {}
ParamBlockDesc2::~ParamBlockDesc2() {}
void ParamBlockDesc2::AddParam(ParamID, ...) {}
USHORT ParamBlockDesc2::Count() {
  return 0;
}
int ParamBlockDesc2::IDtoIndex(ParamID) {
  return -1;
}
ClassDesc2::ClassDesc2() {}
ClassDesc2::~ClassDesc2() {}
int ClassDesc2::NumParamBlockDescs() {
  return 0;
}
ParamBlockDesc2* ClassDesc2::GetParamBlockDesc(int) {
  return nullptr;
}
ParamBlockDesc2* ClassDesc2::GetParamBlockDescByID(BlockID) {
  return nullptr;
}
void ClassDesc2::AddParamBlockDesc(ParamBlockDesc2*) {}
void ClassDesc2::BeginEditParams(IObjParam*, ReferenceMaker*, ULONG, Animatable*) {}
void ClassDesc2::EndEditParams(IObjParam*, ReferenceMaker*, ULONG, Animatable*) {}
void ClassDesc2::MakeAutoParamBlocks(ReferenceMaker*) {}
const MCHAR* ClassDesc2::GetRsrcString(INT_PTR) {
  return nullptr;
}

SimpleObject2::SimpleObject2() : pblock2(nullptr), suspendSnap(FALSE) {}
SimpleObject2::~SimpleObject2() {}
BOOL SimpleObject2::OKtoDisplay(TimeValue) {
  return TRUE;
}
void SimpleObject2::InvalidateUI() {}
void SimpleObject2::BeginEditParams(IObjParam*, ULONG, Animatable*) {}
void SimpleObject2::EndEditParams(IObjParam*, ULONG, Animatable*) {}

BOOL Control::SetPositionController(Control*) {
  return FALSE;
}
BOOL Control::SetRotationController(Control*) {
  return FALSE;
}
BOOL Control::SetScaleController(Control*) {
  return FALSE;
}
Control* NewDefaultFloatController() {
  return nullptr;
}
Control* NewDefaultPoint3Controller() {
  return nullptr;
}
Control* NewDefaultMatrix3Controller() {
  return nullptr;
}
Control* NewDefaultPositionController() {
  return nullptr;
}
Control* NewDefaultRotationController() {
  return nullptr;
}
Control* NewDefaultScaleController() {
  return nullptr;
}
ReferenceTarget* CloneRefHierarchy(ReferenceTarget*) {
  return nullptr;
}
void AnimateOn() {}
void AnimateOff() {}
Object* Object::ConvertToType(TimeValue, Class_ID) {
  return nullptr;
}
TriObject* CreateNewTriObject() {
  return nullptr;
}
MtlBaseLib::MtlBaseLib() {}
MtlBaseLib::~MtlBaseLib() {}
int MtlBaseLib::Add(MtlBase*) {
  return 0;
}
int MtlBaseLib::Count() {
  return 0;
}
MtlBase*& MtlBaseLib::operator[](const int) {
  static MtlBase* none = nullptr;
  return none;
}
void MtlBaseLib::DeleteAll() {}
MultiMtl* NewDefaultMultiMtl() {
  return nullptr;
}
void Interval::SetEmpty() {
  start = end = TIME_NegInfinity;
}
ReferenceTarget* ReferenceTarget::Clone(RemapDir&) {
  return nullptr;
}
void ReferenceTarget::BaseClone(ReferenceTarget*, ReferenceTarget*, RemapDir&) {}
void PickModeCallback::EnterMode(IObjParam*) {}
void PickModeCallback::ExitMode(IObjParam*) {}
PickNodeCallback* PickModeCallback::GetFilter() {
  return nullptr;
}
void EnableAccelerators() {}
void DisableAccelerators() {}
PickNodeCallback::~PickNodeCallback() {}
Material::Material()
    : shininess(0), shinStrength(0), opacity(1), selfIllum(0), dblSided(0), shadeLimit(0) {}
Box3::Box3() {}
Box3::Box3(const Point3& p, const Point3& q) : pmin(p), pmax(q) {}
void Box3::Init() {}
void Mesh::render(GraphicsWindow*, Material*, RECT*, int, int, InterfaceServer*) {}
BOOL Mesh::select(GraphicsWindow*, Material*, HitRegion*, int, int) {
  return FALSE;
}
int BaseObject::Display(TimeValue, INode*, ViewExp*, int) {
  return 0;
}
int BaseObject::HitTest(TimeValue, INode*, int, int, int, IPoint2*, ViewExp*) {
  return 0;
}
void BaseObject::GetWorldBoundBox(TimeValue, INode*, ViewExp*, Box3&) {}
void BaseObject::GetLocalBoundBox(TimeValue, INode*, ViewExp*, Box3&) {}
int BaseObject::HitTest(TimeValue, INode*, int, int, int, IPoint2*, ViewExp*, ModContext*) {
  return 0;
}
void BaseObject::SelectSubComponent(HitRecord*, BOOL, BOOL, BOOL) {}
void BaseObject::ClearSelection(int) {}
void BaseObject::ActivateSubobjSel(int, XFormModes&) {}
int BaseObject::NumSubObjTypes() {
  return 0;
}
ISubObjType* BaseObject::GetSubObjType(int) {
  return nullptr;
}
void BaseObject::GetSubObjectCenters(SubObjAxisCallback*, TimeValue, INode*, ModContext*) {}
void BaseObject::GetSubObjectTMs(SubObjAxisCallback*, TimeValue, INode*, ModContext*) {}
HitRecord* HitRecord::Next() {
  return nullptr;
}
ISubObjType::~ISubObjType() {}
GenSubObjType::GenSubObjType(const MCHAR* nm, const MCHAR*, int) : name(nm) {}
GenSubObjType::~GenSubObjType() {}
SubObjAxisCallback::~SubObjAxisCallback() {}

HitByNameDlgCallback::~HitByNameDlgCallback() {}
const MCHAR* HitByNameDlgCallback::dialogTitle() {
  return L"";
}
const MCHAR* HitByNameDlgCallback::buttonText() {
  return L"";
}
BOOL HitByNameDlgCallback::singleSelect() {
  return FALSE;
}
BOOL HitByNameDlgCallback::useFilter() {
  return TRUE;
}
int HitByNameDlgCallback::filter(INode*) {
  return TRUE;
}
BOOL HitByNameDlgCallback::useProc() {
  return TRUE;
}
void HitByNameDlgCallback::proc(INodeTab&) {}
BOOL HitByNameDlgCallback::doCustomHilite() {
  return FALSE;
}
BOOL HitByNameDlgCallback::doHilite(INode*) {
  return FALSE;
}
BOOL HitByNameDlgCallback::showHiddenAndFrozen() {
  return FALSE;
}
int RegisterNotification(NOTIFYPROC, void*, int) {
  return 1;
}
int UnRegisterNotification(NOTIFYPROC, void*, int) {
  return 1;
}
ISpinnerControl* GetISpinner(HWND) {
  return nullptr;
}
void ReleaseISpinner(ISpinnerControl*) {}
ICustButton* GetICustButton(HWND) {
  return nullptr;
}
void ReleaseICustButton(ICustButton*) {}
SetXFormPacket::SetXFormPacket(const Matrix3& mat, const Matrix3& par)
    : command(XFORM_SET), tmParent(par), tmAxis(mat), q(), localOrigin(FALSE) {}
CommandMode::~CommandMode() {}
XFormModes::XFormModes(CommandMode* mv, CommandMode* ro, CommandMode* sc, CommandMode* us,
                       CommandMode* sq, CommandMode* se)
    : move(mv), rotate(ro), scale(sc), uscale(us), squash(sq), select(se) {}
void BaseObject::Move(TimeValue, Matrix3&, Matrix3&, Point3&, BOOL) {}
void BaseObject::Rotate(TimeValue, Matrix3&, Matrix3&, Quat&, BOOL) {}
void BaseObject::Scale(TimeValue, Matrix3&, Matrix3&, Point3&, BOOL) {}
#define KV_STUB_CMODE(C)           \
  C::C(BaseObject*, IObjParam*) {} \
  C::~C() {}
KV_STUB_CMODE(MoveModBoxCMode)
KV_STUB_CMODE(RotateModBoxCMode)
KV_STUB_CMODE(UScaleModBoxCMode)
KV_STUB_CMODE(NUScaleModBoxCMode)
KV_STUB_CMODE(SquashModBoxCMode)
KV_STUB_CMODE(SelectModBoxCMode)
