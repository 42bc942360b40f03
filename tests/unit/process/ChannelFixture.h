#pragma once

#include "fakes/LibsshMock.h"
#include "handles/SSHHandleChannel.h"
#include "handles/SSHHandleSession.h"

#include <gtest/gtest.h>

#include <memory>

namespace TarnisTest {

/// A connected session that channels can be made on.
class ChannelFixture : public ::testing::Test
{
protected:
    ChannelFixture() { libssh.connected = 1; }

    std::shared_ptr<Tarnis::SSHHandleChannel> makeHandle()
    {
        return Tarnis::SSHHandleChannel::create(session);
    }

    ::testing::NiceMock<LibsshMock> libssh;
    Tarnis::SSHHandleSession session{fakeSession()};
};

} // namespace TarnisTest
