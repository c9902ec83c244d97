// The classes of the sample host's model: a steel frame of bays standing in a
// row. A parameter set drives everything; each bay (an assembly) holds two
// columns, a beam and a brace (its parts); a totals object sums the frame up.
//
//   project
//   ├── parameters       bay_width, storey_height, steel_mass (kg per metre)
//   ├── bay 1            x, width, height, mass, mass_to_here
//   │   ├── column, column, beam, brace      length, mass
//   ├── bay 2 ...        x follows bay 1's x + width
//   └── totals           span, mass (of the whole frame)
//
// Every value but the parameters is computed by regeneration from the values
// the object depends on.
#ifndef ZRN_EXAMPLES_SAMPLE_HOST_FRAMEOBJECTS_H
#define ZRN_EXAMPLES_SAMPLE_HOST_FRAMEOBJECTS_H

#include "Values.h"

#include <zrn/Object/Entity.h>
#include <zrn/Regen/RegenObject.h>

#include <string>

class CFrameModel;

/// The type ids the store keeps for each class; fixed for every version of
/// the host.
enum EFrameType : int {
  kParametersType = 100,
  kBayType = 101,
  kColumnType = 102,
  kBeamType = 103,
  kBraceType = 104,
  kTotalsType = 105,
};

/// The one relation of the model: the first object uses values of the
/// second.
constexpr auto kUses = static_cast<zrn::GRegenObjectRelation::RelationType>(1);

/// The atom a computed object marks when its values must be rebuilt.
inline constexpr wchar_t kValuesAtom[] = L"values";

/// An object of the frame: an entity of the project tree whose impl holds its
/// values, a regenerable object whose id is its object id, and its own
/// regeneration step. It knows the model only once CFrameModel::Attach has
/// indexed the tree. Used by one thread at a time, like the tree.
class CFrameObject : public zrn::IBaseEntity, public zrn::IRegenableObject, public zrn::IRegenStep {
public:
  /// The class's name in reports ("bay", "beam"...).
  virtual wchar_t const* TypeName() const = 0;
  /// The names of the class's values.
  virtual ValueNames Names() const = 0;

  /// The values, read from the store first when they are swapped out.
  CValuesImpl& Values();
  double Value(std::size_t slot) { return Values().Get(slot); }
  void SetModel(CFrameModel* model) { m_model = model; }
  bool IsAttached() const { return m_model != nullptr; }

  zrn::IBaseEntityImpl* CreateBaseEntityImpl() override { return new CValuesImpl(Names()); }

  unsigned long long GetRegenId() override {
    return static_cast<unsigned long long>(GetObjectID());
  }
  bool OnAtomChanged(zrn::GRegenAtom const& atom) override;
  zrn::IRegenStep* CreateRegenStep(zrn::GRegenAtom const& atom) override;
  void OnRemoveObject(zrn::GRemoveObjectContext& context) override;
  long long GetStepKey() override { return 1; }
  void Execute(zrn::IRegenableObject* object, zrn::GRegenAtom const& atom) override;

protected:
  /// Whether `atom`, a change of an object this one uses, changes this one.
  virtual bool IsAffectedBy(zrn::GRegenAtom const& atom) = 0;
  /// Computes the values again from the objects used; true when any changed.
  virtual bool Recompute() = 0;
  /// Sets one value; true when it changed.
  bool Set(std::size_t slot, double value) { return Values().Set(slot, value); }
  CFrameModel& Model();
  /// The id of `other`, as relations name it.
  static unsigned long long IdOf(IBaseEntity const& other) {
    return static_cast<unsigned long long>(other.GetObjectID());
  }

private:
  CFrameModel* m_model = nullptr;
};

/// The inputs of the frame. Changing one marks an atom named after the
/// parameter, so that only the objects that use that parameter react.
class CParameters : public CFrameObject {
public:
  enum Slot : std::size_t { kBayWidth, kStoreyHeight, kSteelMass };

  wchar_t const* TypeName() const override { return L"parameters"; }
  ValueNames Names() const override;
  /// Sets a parameter and, when attached to a model, marks it for the next
  /// regeneration.
  void SetParameter(Slot slot, double value);
  /// Marks every parameter for the next regeneration, which then computes
  /// the whole frame.
  void MarkAll();

  void CollectRelations(zrn::IRelationContext&) override {}
  zrn::IRegenStep* CreateRegenStep(zrn::GRegenAtom const&) override { return nullptr; }

protected:
  bool IsAffectedBy(zrn::GRegenAtom const&) override { return false; }
  bool Recompute() override { return false; }
};

/// An assembly: one bay of the frame, placed after the previous bay, with its
/// members as children.
class CBay : public CFrameObject {
public:
  enum Slot : std::size_t { kX, kWidth, kHeight, kMass, kMassToHere };

  wchar_t const* TypeName() const override { return L"bay"; }
  ValueNames Names() const override;
  /// The bay before this one; null for the first.
  void SetPrevious(CBay* previous) { m_previous = previous; }
  void CollectRelations(zrn::IRelationContext& context) override;

protected:
  bool IsAffectedBy(zrn::GRegenAtom const& atom) override;
  bool Recompute() override;

private:
  CBay* m_previous = nullptr;
};

/// A part: a straight steel member whose length follows from the
/// parameters. Subclasses say which parameters and how.
class CMember : public CFrameObject {
public:
  enum Slot : std::size_t { kLength, kMass };

  ValueNames Names() const override;
  void CollectRelations(zrn::IRelationContext& context) override;

protected:
  /// Whether the length depends on the parameter named `name`.
  virtual bool UsesParameter(std::wstring const& name) const = 0;
  virtual double Length(CParameters& parameters) = 0;
  bool IsAffectedBy(zrn::GRegenAtom const& atom) override;
  bool Recompute() override;
};

/// A column: as long as a storey is high.
class CColumn : public CMember {
public:
  wchar_t const* TypeName() const override { return L"column"; }

protected:
  bool UsesParameter(std::wstring const& name) const override;
  double Length(CParameters& parameters) override;
};

/// A beam: as long as a bay is wide.
class CBeam : public CMember {
public:
  wchar_t const* TypeName() const override { return L"beam"; }

protected:
  bool UsesParameter(std::wstring const& name) const override;
  double Length(CParameters& parameters) override;
};

/// A brace: the bay's diagonal.
class CBrace : public CMember {
public:
  wchar_t const* TypeName() const override { return L"brace"; }

protected:
  bool UsesParameter(std::wstring const& name) const override;
  double Length(CParameters& parameters) override;
};

/// The frame's totals, read off the last bay.
class CTotals : public CFrameObject {
public:
  enum Slot : std::size_t { kSpan, kMass };

  wchar_t const* TypeName() const override { return L"totals"; }
  ValueNames Names() const override;
  void SetLastBay(CBay* last) { m_last = last; }
  void CollectRelations(zrn::IRelationContext& context) override;

protected:
  bool IsAffectedBy(zrn::GRegenAtom const&) override { return true; }
  bool Recompute() override;

private:
  CBay* m_last = nullptr;
};

#endif
