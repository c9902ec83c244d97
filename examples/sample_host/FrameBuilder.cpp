#include "FrameBuilder.h"

#include "FrameObjects.h"
#include "Progress.h"

std::size_t BaysFor(std::size_t entities) {
  std::size_t const perBay = 1 + kMembersPerBay;
  std::size_t const others = entities > 2 ? entities - 2 : 0;
  return std::max<std::size_t>(1, (others + perBay - 1) / perBay);
}

void BuildFrame(zrn::IBaseProject& project, std::size_t bays) {
  auto* parameters = new CParameters;
  project.AddChild(parameters); // the project numbers each entity as it joins
  parameters->SetParameter(CParameters::kBayWidth, 6.0);
  parameters->SetParameter(CParameters::kStoreyHeight, 4.0);
  parameters->SetParameter(CParameters::kSteelMass, 45.0);
  for (std::size_t i = 0; i < bays; ++i) {
    auto* bay = new CBay;
    project.AddChild(bay);
    bay->AddChild(new CColumn);
    bay->AddChild(new CColumn);
    bay->AddChild(new CBeam);
    bay->AddChild(new CBrace);
    CPhaseClock::Report(i + 1, bays);
  }
  project.AddChild(new CTotals);
}
