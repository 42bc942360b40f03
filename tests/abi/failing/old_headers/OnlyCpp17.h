#pragma once

// Fine as C++17. Later standards do not let a class with a declared constructor be filled like
// this.
struct OnlyCpp17
{
    OnlyCpp17() = default;
    int number;
};

inline OnlyCpp17 makeOnlyCpp17()
{
    return OnlyCpp17{1};
}
