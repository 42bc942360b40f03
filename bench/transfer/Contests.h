#pragma once

#include "transfer/Clients.h"
#include "transfer/Workload.h"

#include <chrono>
#include <string>
#include <vector>

namespace TarnisBench {

/// One piece of work that `tarnis` and its peers do in turns, and how far ahead `tarnis` is to be.
struct Contest
{
    const char* name;
    Errand::Kind kind;
    Load load;
    std::chrono::milliseconds roundTrip;
    /// The least ratio of the speed of `tarnis` to that of the peer that it is measured by.
    double bar;
    /// That peer; empty: the best one.
    const char* rival = "";
    /// The only cipher that the server offers; empty: those that it offers by itself.
    const char* cipher = "";
};

/// All there are, those that need the same together.
const std::vector<Contest>& allContests();

/// Whether there is one of this name.
bool isContest(const std::string& name);

/// For people: how much is done, and where.
std::string titleOf(const Contest& contest, const Material& material);

} // namespace TarnisBench
