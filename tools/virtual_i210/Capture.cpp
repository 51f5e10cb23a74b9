#include "tools/virtual_i210/Capture.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "tools/virtual_i210/State.h"

namespace virtual_i210 {

namespace {

constexpr std::uint32_t kSectionHeader = 0x0A0D0D0A;
constexpr std::uint32_t kInterfaceDescription = 1;
constexpr std::uint32_t kEnhancedPacket = 6;
constexpr std::uint16_t kEthernet = 1;
constexpr std::uint16_t kNameOption = 2;
constexpr std::uint16_t kResolutionOption = 9;

/** A block as it stands in the file: its length before and behind its body. */
class Block {
public:
    explicit Block(std::uint32_t type) {
        put(type);
        put(std::uint32_t{0});
    }

    template <typename Value>
    void put(Value value) {
        append(&value, sizeof value);
    }
    void append(const void* data, std::size_t length) {
        const auto* bytes = static_cast<const std::uint8_t*>(data);
        bytes_.insert(bytes_.end(), bytes, bytes + length);
    }
    void pad() { bytes_.resize((bytes_.size() + 3) / 4 * 4); }
    void option(std::uint16_t code, const void* value, std::size_t length) {
        put(code);
        put(static_cast<std::uint16_t>(length));
        append(value, length);
        pad();
    }

    /** One write, so that the file is whole whenever a run ends. */
    bool writeTo(int fd) {
        const auto length = static_cast<std::uint32_t>(bytes_.size() + sizeof(std::uint32_t));
        put(length);
        std::memcpy(&bytes_[sizeof(std::uint32_t)], &length, sizeof length);
        return syscall(SYS_write, fd, bytes_.data(), bytes_.size()) ==
               static_cast<long>(bytes_.size());
    }

private:
    std::vector<std::uint8_t> bytes_;
};

Block sectionHeader() {
    Block block(kSectionHeader);
    block.put(std::uint32_t{0x1A2B3C4D});
    block.put(std::uint16_t{1});
    block.put(std::uint16_t{0});
    block.put(std::int64_t{-1});
    return block;
}

Block interfaceOf(const CardState& card) {
    Block block(kInterfaceDescription);
    block.put(kEthernet);
    block.put(std::uint16_t{0});
    block.put(std::uint32_t{0});
    block.option(kNameOption, card.ifName, std::strlen(card.ifName));
    constexpr std::uint8_t kNanoseconds = 9;
    block.option(kResolutionOption, &kNanoseconds, sizeof kNanoseconds);
    block.put(std::uint32_t{0});
    return block;
}

int openFile(const char* path, int flags) {
    return static_cast<int>(
        syscall(SYS_openat, AT_FDCWD, path, O_WRONLY | O_APPEND | O_CLOEXEC | flags, 0644));
}

}  // namespace

void createCapture(const SharedState& state) {
    const int fd = openFile(state.capturePath, O_CREAT | O_TRUNC);
    bool written = fd >= 0 && sectionHeader().writeTo(fd);
    for (std::uint32_t i = 0; i < state.cardCount && written; ++i) {
        written = interfaceOf(state.cards[i]).writeTo(fd);
    }
    const int reason = errno;
    if (fd >= 0) {
        syscall(SYS_close, fd);
    }
    if (!written) {
        throw ConfigError(std::string(kConfigVariable) + ": capture=" + state.capturePath + ": " +
                          std::strerror(reason) + "; name a file in a folder that can be written");
    }
}

void captureFrame(const SharedState& state, std::uint32_t card, std::uint64_t realtimeNs,
                  const std::uint8_t* frame, std::size_t length) {
    static const int fd = openFile(state.capturePath, 0);
    Block block(kEnhancedPacket);
    block.put(card);
    block.put(static_cast<std::uint32_t>(realtimeNs >> 32));
    block.put(static_cast<std::uint32_t>(realtimeNs));
    block.put(static_cast<std::uint32_t>(length));
    block.put(static_cast<std::uint32_t>(length));
    block.append(frame, length);
    block.pad();
    block.writeTo(fd);
}

}  // namespace virtual_i210
