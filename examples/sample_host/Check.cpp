#include "Check.h"

#include <cmath>
#include <sstream>

namespace {

std::string Describe(CFrameObject& object, std::size_t slot) {
  std::wstring const type = object.TypeName();
  return std::string(type.begin(), type.end()) + " #" + std::to_string(object.GetRegenId()) + " " +
         object.Names()[slot];
}

bool Near(double value, double expected) {
  return std::abs(value - expected) <= 1e-9 * std::max(1.0, std::abs(expected));
}

} // namespace

SSnapshot TakeSnapshot(CFrameModel& model) {
  SSnapshot snapshot;
  auto keep = [&](CFrameObject& object) {
    snapshot.ids.push_back(object.GetRegenId());
    for (std::size_t slot = 0; slot < CValuesImpl::kMaxValues; ++slot)
      snapshot.values.push_back(slot < object.Names().size() ? object.Value(slot) : 0.0);
  };
  keep(model.Parameters());
  for (unsigned long long id : model.RunOrder())
    keep(*model.Find(id));
  return snapshot;
}

bool MatchesSnapshot(CFrameModel& reloaded, SSnapshot const& snapshot, std::string& error) {
  for (std::size_t i = 0; i < snapshot.ids.size(); ++i) {
    CFrameObject* object = reloaded.Find(snapshot.ids[i]);
    if (object == nullptr) {
      error = "object #" + std::to_string(snapshot.ids[i]) + " is missing from the store";
      return false;
    }
    for (std::size_t slot = 0; slot < object->Names().size(); ++slot) {
      double const expected = snapshot.values[i * CValuesImpl::kMaxValues + slot];
      if (object->Value(slot) != expected) { // the store keeps doubles bit for bit
        std::ostringstream text;
        text << Describe(*object, slot) << " is " << object->Value(slot)
             << " in the store, regeneration computed " << expected;
        error = text.str();
        return false;
      }
    }
  }
  return true;
}

bool TotalsAreRight(CFrameModel& model, std::string& error) {
  CParameters& parameters = model.Parameters();
  double const width = parameters.Value(CParameters::kBayWidth);
  double const height = parameters.Value(CParameters::kStoreyHeight);
  double const bays = static_cast<double>(model.BayCount());
  double const span = bays * width;
  double const mass = bays * (2 * height + width + std::hypot(width, height)) *
                      parameters.Value(CParameters::kSteelMass);
  CTotals& totals = model.Totals();
  for (auto [slot, expected] : {std::pair{CTotals::kSpan, span}, std::pair{CTotals::kMass, mass}})
    if (!Near(totals.Value(slot), expected)) {
      std::ostringstream text;
      text << Describe(totals, slot) << " is " << totals.Value(slot) << ", the frame needs "
           << expected;
      error = text.str();
      return false;
    }
  return true;
}
