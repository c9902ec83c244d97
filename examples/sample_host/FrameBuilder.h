// Builds a new frame in a project.
#ifndef ZRN_EXAMPLES_SAMPLE_HOST_FRAMEBUILDER_H
#define ZRN_EXAMPLES_SAMPLE_HOST_FRAMEBUILDER_H

#include <zrn/Object/Project.h>

#include <cstddef>

/// The members of each bay: two columns, a beam and a brace.
constexpr std::size_t kMembersPerBay = 4;

/// How many bays a frame of at least `entities` entities (the project aside)
/// needs: the parameters and the totals, then a bay and its members each.
std::size_t BaysFor(std::size_t entities);

/// Adds a frame of `bays` bays to `project`: the parameters (bay width 6 m,
/// storey height 4 m, 45 kg of steel per metre), the bays with their
/// members, and the totals. Only the parameters have values: regeneration
/// computes the rest.
void BuildFrame(zrn::IBaseProject& project, std::size_t bays);

#endif
