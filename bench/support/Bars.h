#pragma once

#include "support/Interleaved.h"

namespace TarnisBench {

/// A section for bars alone.
Section barsSection();

/// A ratio of speeds that is to be at least so much.
Row barOfSpeeds(const std::string& name, double ratio, double least);

/// A ratio of times that is to be at most so much.
Row barOfTimes(const std::string& name, double ratio, double most);

/// The median time of one contestant, by its name, to that of another.
double ratioOfTimes(const Interleaved& runner, const std::string& name, const std::string& peer);

} // namespace TarnisBench
