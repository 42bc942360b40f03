#pragma once

#include <unistd.h>

namespace TarnisTest {

/// For as long as it lives, a process of the superuser acts as nobody in particular: permissions
/// apply to it. Does nothing for a process that has no privileges, or must not give them up.
class UnprivilegedUser
{
public:
    UnprivilegedUser()
        : changed_(::geteuid() == 0 && ::seteuid(nobody) == 0)
    {}

    UnprivilegedUser(const UnprivilegedUser&) = delete;
    UnprivilegedUser& operator=(const UnprivilegedUser&) = delete;

    ~UnprivilegedUser()
    {
        if (changed_) {
            static_cast<void>(::seteuid(0));
        }
    }

    /// False: the process is the superuser's all the same.
    bool permissionsApply() const { return ::geteuid() != 0; }

private:
    static constexpr uid_t nobody = 65534;

    const bool changed_;
};

/// For as long as it lives, a process that acts as nobody only because of an UnprivilegedUser is
/// the superuser's again: to set up what nobody else can. Does nothing for any other.
class PrivilegedMoment
{
public:
    PrivilegedMoment()
        : user_(::geteuid())
        , changed_(user_ != 0 && ::getuid() == 0 && ::seteuid(0) == 0)
    {}

    PrivilegedMoment(const PrivilegedMoment&) = delete;
    PrivilegedMoment& operator=(const PrivilegedMoment&) = delete;

    ~PrivilegedMoment()
    {
        if (changed_) {
            static_cast<void>(::seteuid(user_));
        }
    }

private:
    const uid_t user_;
    const bool changed_;
};

} // namespace TarnisTest
