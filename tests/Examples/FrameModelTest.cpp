// The sample host's model driven directly: its values archive, the
// regeneration of the frame and its command line.
#include "FrameModel.h"
#include "Check.h"
#include "CommandLine.h"
#include "FrameBuilder.h"

#include <zrn/IO/DbArchiveImpl.h>
#include <zrn/IO/MemStream.h>

#include <gtest/gtest.h>

#include <cmath>
#include <set>
#include <string>
#include <vector>

namespace {

std::string Archive(CValuesImpl& values) {
  zrn::GMemStream stream(true, nullptr, 0);
  zrn::GDbArchiveImpl ar(&stream);
  values.Serialize(ar);
  return std::string(stream.GetData(), stream.GetDataSize());
}

void Unarchive(std::string const& bytes, CValuesImpl& values) {
  zrn::GMemStream stream(bytes.data(), static_cast<unsigned>(bytes.size()));
  zrn::GDbArchiveImpl ar(&stream);
  values.Serialize(ar);
}

TEST(FrameValues, ReadBackByNameSkippingNamesTheReaderDoesNotKnow) {
  static constexpr char const* kWritten[] = {"length", "mass", "colour"};
  static constexpr char const* kRead[] = {"mass", "finish", "length"};
  CValuesImpl written(kWritten);
  written.Set(0, 2.5);
  written.Set(1, 112.5);
  written.Set(2, 7);
  CValuesImpl read(kRead);
  read.Set(1, 99); // a value the store does not hold is left as it was
  Unarchive(Archive(written), read);
  EXPECT_EQ(read.Get(0), 112.5);
  EXPECT_EQ(read.Get(1), 99);
  EXPECT_EQ(read.Get(2), 2.5);
}

TEST(FrameValues, SetSaysWhetherTheValueChanged) {
  static constexpr char const* kNames[] = {"x"};
  CValuesImpl values(kNames);
  EXPECT_FALSE(values.Set(0, 0.0));
  EXPECT_TRUE(values.Set(0, 1.0));
  EXPECT_FALSE(values.Set(0, 1.0));
}

class Frame : public testing::Test {
protected:
  static constexpr std::size_t kBays = 3;

  void SetUp() override {
    BuildFrame(m_project, kBays);
    std::string error;
    ASSERT_TRUE(m_model.Attach(m_project, error)) << error;
    m_model.Parameters().MarkAll();
    Regenerate();
  }

  void Regenerate() {
    zrn::GRegenContext context;
    m_model.Regenerate(context);
  }

  CBay& Bay(std::size_t index) { return *static_cast<CBay*>(m_project.GetAllChild()[1 + index]); }

  // The type names of the objects the last pass ran.
  std::multiset<std::wstring> TypesRun() {
    std::multiset<std::wstring> types;
    for (unsigned long long id : m_model.RunOrder())
      types.insert(m_model.Find(id)->TypeName());
    return types;
  }

  std::size_t PlaceInRun(zrn::IBaseEntity const& entity) {
    std::vector<unsigned long long> const& order = m_model.RunOrder();
    auto const found = std::find(order.begin(), order.end(), entity.GetObjectID());
    EXPECT_NE(found, order.end()) << entity.GetObjectID();
    return static_cast<std::size_t>(found - order.begin());
  }

  zrn::IBaseProject m_project;
  CFrameModel m_model;
};

TEST_F(Frame, FirstPassComputesEveryObjectAfterWhatItUses) {
  EXPECT_EQ(m_model.RunOrder().size(), kBays * (1 + kMembersPerBay) + 1);
  std::string error;
  EXPECT_TRUE(TotalsAreRight(m_model, error)) << error;
  for (std::size_t i = 0; i < kBays; ++i) {
    EXPECT_EQ(Bay(i).Value(CBay::kX), 6.0 * i);
    EXPECT_EQ(Bay(i).Value(CBay::kHeight), 4.0);
    for (zrn::IBaseEntity* member : Bay(i).GetAllChild())
      EXPECT_LT(PlaceInRun(*member), PlaceInRun(Bay(i)));
    if (i > 0) {
      EXPECT_LT(PlaceInRun(Bay(i - 1)), PlaceInRun(Bay(i)));
    }
  }
  EXPECT_EQ(m_model.RunOrder().back(), m_model.Totals().GetRegenId());
  EXPECT_EQ(m_model.Totals().Value(CTotals::kSpan), 18.0);
}

TEST_F(Frame, EachParameterRegeneratesOnlyWhatUsesIt) {
  struct Case {
    CParameters::Slot parameter;
    double value;
    std::size_t columns, beams, braces;
  };
  for (Case const& change : {Case{CParameters::kBayWidth, 7.5, 0, kBays, kBays},
                             Case{CParameters::kStoreyHeight, 3.0, 2 * kBays, 0, kBays},
                             Case{CParameters::kSteelMass, 60.0, 2 * kBays, kBays, kBays}}) {
    m_model.Parameters().SetParameter(change.parameter, change.value);
    Regenerate();
    std::multiset<std::wstring> const run = TypesRun();
    EXPECT_EQ(run.count(L"column"), change.columns) << change.parameter;
    EXPECT_EQ(run.count(L"beam"), change.beams) << change.parameter;
    EXPECT_EQ(run.count(L"brace"), change.braces) << change.parameter;
    EXPECT_EQ(run.count(L"bay"), kBays) << change.parameter;
    EXPECT_EQ(run.count(L"totals"), 1u) << change.parameter;
    EXPECT_EQ(m_model.UpdateOrder().front(), m_model.Parameters().GetRegenId());
    std::string error;
    EXPECT_TRUE(TotalsAreRight(m_model, error)) << error;
  }
}

TEST_F(Frame, SettingAParameterToItsValueRegeneratesNothing) {
  m_model.Parameters().SetParameter(CParameters::kBayWidth, 6.0);
  Regenerate();
  EXPECT_TRUE(m_model.RunOrder().empty());
  EXPECT_EQ(m_model.ChangedCount(), 0u);
}

TEST_F(Frame, SnapshotFindsAValueThatDiffers) {
  m_model.Parameters().SetParameter(CParameters::kBayWidth, 7.5);
  Regenerate();
  SSnapshot const snapshot = TakeSnapshot(m_model);
  std::string error;
  EXPECT_TRUE(MatchesSnapshot(m_model, snapshot, error)) << error;
  Bay(1).Values().Set(CBay::kWidth, 6.0);
  EXPECT_FALSE(MatchesSnapshot(m_model, snapshot, error));
  EXPECT_NE(error.find("bay #" + std::to_string(Bay(1).GetObjectID()) + " width is 6"),
            std::string::npos)
      << error;
}

TEST_F(Frame, RemovingABayLinksTheNextToTheOneBefore) {
  long long const removed = Bay(1).GetObjectID();
  m_model.RemoveObject(static_cast<unsigned long long>(removed));
  EXPECT_EQ(m_model.BayCount(), kBays - 1);
  EXPECT_EQ(m_model.Find(static_cast<unsigned long long>(removed)), nullptr);
  EXPECT_EQ(m_model.Find(static_cast<unsigned long long>(removed) + 1), nullptr); // a member
  EXPECT_EQ(m_model.Objects().size(), 2 + (kBays - 1) * (1 + kMembersPerBay));

  m_model.Parameters().SetParameter(CParameters::kBayWidth, 7.0);
  Regenerate();
  EXPECT_EQ(Bay(1).Value(CBay::kX), 7.0);
  EXPECT_LT(PlaceInRun(Bay(0)), PlaceInRun(Bay(1)));
  std::string error;
  EXPECT_TRUE(TotalsAreRight(m_model, error)) << error;
}

TEST(FrameAttach, RefusesTreesThatAreNotFrames) {
  std::string error;
  {
    zrn::IBaseProject project; // a bay but no parameters or totals
    project.AddChild(new CBay);
    CFrameModel model;
    EXPECT_FALSE(model.Attach(project, error));
    EXPECT_NE(error.find("no frame"), std::string::npos) << error;
  }
  {
    zrn::IBaseProject project; // an entity of another host inside a bay
    BuildFrame(project, 1);
    project.GetAllChild()[1]->AddChild(new zrn::IBaseEntity);
    CFrameModel model;
    EXPECT_FALSE(model.Attach(project, error));
    EXPECT_NE(error.find("not part of a frame"), std::string::npos) << error;
  }
  {
    zrn::IBaseProject project; // an id far beyond the count, from a foreign store
    BuildFrame(project, 1);
    project.GetAllChild().back()->SetObjectID(1'000'000'000'000);
    CFrameModel model;
    EXPECT_FALSE(model.Attach(project, error));
  }
}

TEST(FrameSize, BaysHoldAtLeastTheEntitiesAskedFor) {
  EXPECT_EQ(BaysFor(7), 1u);
  EXPECT_EQ(BaysFor(32), 6u);
  EXPECT_EQ(BaysFor(33), 7u);
  EXPECT_EQ(BaysFor(1'000'000), 200'000u);
}

TEST(SampleHostCommandLine, DefaultsAndBothSpellingsOfAValue) {
  SOptions options;
  std::string error;
  char const* plain[] = {"sample_host"};
  ASSERT_TRUE(ParseCommandLine(1, plain, "base", options, error));
  EXPECT_EQ(options.out, "base");
  EXPECT_EQ(options.db, "base/model.db");
  EXPECT_EQ(options.entities, 32u);

  char const* given[] = {"sample_host", "--entities=100", "--out", "o", "--db=s.db"};
  ASSERT_TRUE(ParseCommandLine(5, given, "base", options, error)) << error;
  EXPECT_EQ(options.out, "o");
  EXPECT_EQ(options.db, "s.db");
  EXPECT_EQ(options.entities, 100u);

  char const* outOnly[] = {"sample_host", "--out", "o"}; // the store follows the folder
  ASSERT_TRUE(ParseCommandLine(3, outOnly, "base", options, error));
  EXPECT_EQ(options.db, "o/model.db");
}

} // namespace
