#pragma once

#include "sftp/wire/SFTPPacketReceiver.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace TarnisTest {

/// A packet that was handed over, with the parts of a data reply put together.
struct LoggedPacket
{
    Tarnis::SFTPPacketType type;
    std::uint32_t id;
    std::string fields;     ///< Of a data reply: its data.
    std::uint32_t size = 0; ///< Of a data reply: how much data it announced.
    bool hasEnded = true;

    friend bool operator==(const LoggedPacket& left, const LoggedPacket& right)
    {
        return left.type == right.type && left.id == right.id && left.fields == right.fields &&
               left.size == right.size && left.hasEnded == right.hasEnded;
    }
};

/// Keeps what it gets, and notes whether it came in an order in which it may come.
class PacketLog final : public Tarnis::SFTPPacketReceiver
{
public:
    void packet(const Tarnis::SFTPPacket& packet) override
    {
        expect(!isInData());
        packets_.push_back({packet.type, packet.id, std::string(packet.fields)});
    }

    void dataBegins(std::uint32_t id, std::uint32_t size) override
    {
        expect(!isInData());
        packets_.push_back({Tarnis::SFTPPacketType::Data, id, {}, size, false});
    }

    void dataContinues(std::string_view bytes) override
    {
        expect(isInData() && !bytes.empty());
        if (isInData()) {
            packets_.back().fields.append(bytes);
            expect(packets_.back().fields.size() <= packets_.back().size);
        }
    }

    void dataEnds() override
    {
        expect(isInData() && packets_.back().fields.size() == packets_.back().size);
        if (isInData()) {
            packets_.back().hasEnded = true;
        }
    }

    const std::vector<LoggedPacket>& packets() const { return packets_; }

    bool isOrderly() const { return isOrderly_; }

private:
    bool isInData() const { return !packets_.empty() && !packets_.back().hasEnded; }

    void expect(bool condition) { isOrderly_ = isOrderly_ && condition; }

    std::vector<LoggedPacket> packets_;
    bool isOrderly_ = true;
};

} // namespace TarnisTest
