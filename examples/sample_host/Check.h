// Checks that a reloaded frame holds what regeneration computed.
#ifndef ZRN_EXAMPLES_SAMPLE_HOST_CHECK_H
#define ZRN_EXAMPLES_SAMPLE_HOST_CHECK_H

#include "FrameModel.h"

#include <string>
#include <vector>

/// The values of some objects of a frame, kept to compare with a copy.
struct SSnapshot {
  std::vector<unsigned long long> ids;
  /// CValuesImpl::kMaxValues values per id, in the order of `ids`.
  std::vector<double> values;
};

/// The values of the parameters and of every object the last pass of `model`
/// ran.
SSnapshot TakeSnapshot(CFrameModel& model);

/// Compares the objects of `snapshot` with `reloaded`. False, with `error`
/// naming the first difference, when one differs or is missing.
bool MatchesSnapshot(CFrameModel& reloaded, SSnapshot const& snapshot, std::string& error);

/// Checks the totals against the frame's closed form (span = bays x width;
/// mass = bays x steel of two columns, a beam and a brace). False, with
/// `error` saying what differs, when they disagree.
bool TotalsAreRight(CFrameModel& model, std::string& error);

#endif
