#pragma once

namespace TarnisTest {

/// What the supervisor tells the test process over the lifeline socket that joins the two.
struct SupervisorMessage
{
    enum Kind : int
    {
        Started,       ///< value: the process id of the command
        CouldNotStart, ///< value: errno; nothing runs, and nothing more is sent
        Ended,         ///< value: the wait status; every process of the command is gone
    };

    Kind kind;
    int value;
};

/// The descriptor on which the supervisor finds its end of the lifeline.
inline constexpr int kLifelineFd = 3;

} // namespace TarnisTest
