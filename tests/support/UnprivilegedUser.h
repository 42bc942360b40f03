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

} // namespace TarnisTest
