#include "FrameObjects.h"

#include "FrameModel.h"

#include <cassert>
#include <cmath>

namespace {

constexpr char const* kParameterNames[] = {"bay_width", "storey_height", "steel_mass"};
constexpr char const* kBayNames[] = {"x", "width", "height", "mass", "mass_to_here"};
constexpr char const* kMemberNames[] = {"length", "mass"};
constexpr char const* kTotalsNames[] = {"span", "mass"};

// The atom a parameter's change marks: the parameter's name. Kept wide, so
// that comparing an atom with it allocates nothing.
constexpr wchar_t const* kParameterAtoms[] = {L"bay_width", L"storey_height", L"steel_mass"};

bool IsParameter(std::wstring const& atom, CParameters::Slot slot) {
  return atom == kParameterAtoms[slot];
}

} // namespace

CValuesImpl& CFrameObject::Values() {
  // Every class creates a CValuesImpl (CreateBaseEntityImpl).
  return static_cast<CValuesImpl&>(*GetBaseEntityImpl(true));
}

CFrameModel& CFrameObject::Model() {
  assert(m_model != nullptr && "the object is attached to a model before regeneration");
  return *m_model;
}

bool CFrameObject::OnAtomChanged(zrn::GRegenAtom const& atom) {
  if (atom.TargetId() == GetRegenId()) {
    Model().NoteUpdated(GetRegenId());
    return true;
  }
  if (IsAffectedBy(atom))
    Model().MarkAtom(zrn::GRegenAtom(GetRegenId(), kValuesAtom));
  return false;
}

zrn::IRegenStep* CFrameObject::CreateRegenStep(zrn::GRegenAtom const&) { return this; }

void CFrameObject::OnRemoveObject(zrn::GRemoveObjectContext& context) {
  if (context.GetTargetId() == GetRegenId())
    context.MarkRemove(GetRegenId());
}

void CFrameObject::Execute(zrn::IRegenableObject*, zrn::GRegenAtom const&) {
  bool const changed = Recompute();
  if (changed)
    SetObjectFlag(true, zrn::EGOBJECT_FLAG_MODIFIED); // the next save writes it
  Model().NoteRun(GetRegenId(), changed);
}

ValueNames CParameters::Names() const { return kParameterNames; }

void CParameters::SetParameter(Slot slot, double value) {
  if (!Set(slot, value))
    return;
  SetObjectFlag(true, zrn::EGOBJECT_FLAG_MODIFIED);
  if (IsAttached())
    Model().MarkAtom(zrn::GRegenAtom(GetRegenId(), kParameterAtoms[slot]));
}

void CParameters::MarkAll() {
  for (wchar_t const* atom : kParameterAtoms)
    Model().MarkAtom(zrn::GRegenAtom(GetRegenId(), atom));
}

ValueNames CBay::Names() const { return kBayNames; }

void CBay::CollectRelations(zrn::IRelationContext& context) {
  context.AddRelation(GetRegenId(), IdOf(Model().Parameters()), kUses);
  if (m_previous != nullptr)
    context.AddRelation(GetRegenId(), IdOf(*m_previous), kUses);
  for (IBaseEntity* member : GetAllChild())
    context.AddRelation(GetRegenId(), IdOf(*member), kUses);
}

bool CBay::IsAffectedBy(zrn::GRegenAtom const& atom) {
  if (atom.TargetId() != IdOf(Model().Parameters()))
    return true; // the previous bay or a member
  return IsParameter(atom.PropertyId(), CParameters::kBayWidth) ||
         IsParameter(atom.PropertyId(), CParameters::kStoreyHeight);
}

bool CBay::Recompute() {
  CParameters& parameters = Model().Parameters();
  double mass = 0;
  for (IBaseEntity* member : GetAllChild())
    mass += static_cast<CMember*>(member)->Value(CMember::kMass);
  double const x = m_previous ? m_previous->Value(kX) + m_previous->Value(kWidth) : 0;
  double const before = m_previous ? m_previous->Value(kMassToHere) : 0;
  // Every Set runs: || would skip the rest after the first change.
  bool changed = Set(kX, x);
  changed |= Set(kWidth, parameters.Value(CParameters::kBayWidth));
  changed |= Set(kHeight, parameters.Value(CParameters::kStoreyHeight));
  changed |= Set(kMass, mass);
  changed |= Set(kMassToHere, before + mass);
  return changed;
}

ValueNames CMember::Names() const { return kMemberNames; }

void CMember::CollectRelations(zrn::IRelationContext& context) {
  context.AddRelation(GetRegenId(), IdOf(Model().Parameters()), kUses);
}

bool CMember::IsAffectedBy(zrn::GRegenAtom const& atom) {
  return IsParameter(atom.PropertyId(), CParameters::kSteelMass) ||
         UsesParameter(atom.PropertyId());
}

bool CMember::Recompute() {
  CParameters& parameters = Model().Parameters();
  double const length = Length(parameters);
  bool changed = Set(kLength, length);
  changed |= Set(kMass, length * parameters.Value(CParameters::kSteelMass));
  return changed;
}

bool CColumn::UsesParameter(std::wstring const& name) const {
  return IsParameter(name, CParameters::kStoreyHeight);
}

double CColumn::Length(CParameters& parameters) {
  return parameters.Value(CParameters::kStoreyHeight);
}

bool CBeam::UsesParameter(std::wstring const& name) const {
  return IsParameter(name, CParameters::kBayWidth);
}

double CBeam::Length(CParameters& parameters) { return parameters.Value(CParameters::kBayWidth); }

bool CBrace::UsesParameter(std::wstring const& name) const {
  return IsParameter(name, CParameters::kBayWidth) || IsParameter(name, CParameters::kStoreyHeight);
}

double CBrace::Length(CParameters& parameters) {
  return std::hypot(parameters.Value(CParameters::kBayWidth),
                    parameters.Value(CParameters::kStoreyHeight));
}

ValueNames CTotals::Names() const { return kTotalsNames; }

void CTotals::CollectRelations(zrn::IRelationContext& context) {
  if (m_last != nullptr)
    context.AddRelation(GetRegenId(), IdOf(*m_last), kUses);
}

bool CTotals::Recompute() {
  double const span = m_last ? m_last->Value(CBay::kX) + m_last->Value(CBay::kWidth) : 0;
  bool changed = Set(kSpan, span);
  changed |= Set(kMass, m_last ? m_last->Value(CBay::kMassToHere) : 0);
  return changed;
}
