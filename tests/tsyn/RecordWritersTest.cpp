#include "tools/tsyn/daemon/RecordWriters.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <sstream>

#include "tools/tsyn/daemon/PacketSockets.h"

namespace tsyn {
namespace {

/** A file of one page in shared memory, mapped into this process. */
class MappedFile {
public:
    explicit MappedFile(int protection) {
        const int file = mkstemp(path_);
        EXPECT_EQ(0, ftruncate(file, kBytes));
        memory_ = mmap(nullptr, kBytes, protection, MAP_SHARED, file, 0);
        EXPECT_NE(MAP_FAILED, memory_);
        close(file);
    }
    ~MappedFile() {
        munmap(memory_, kBytes);
        unlink(path_);
    }
    MappedFile(const MappedFile&) = delete;
    MappedFile& operator=(const MappedFile&) = delete;

    FileIdentity identity() const { return identityOf(path_).value(); }

private:
    static constexpr int kBytes = 4096;
    char path_[32] = "/dev/shm/tsyn-writers-XXXXXX";
    void* memory_ = nullptr;
};

TEST(RecordWriters, ADaemonHasTheRecordSharedAndWritable) {
    const FileIdentity file{0x00, 0x1a, 4711};
    EXPECT_TRUE(mapsForWriting("7f00-7f10 rw-s 00000000 00:1a 4711   /dev/shm/eth1\n", file));
    EXPECT_FALSE(mapsForWriting("7f00-7f10 r--s 00000000 00:1a 4711   /dev/shm/eth1\n", file));
    EXPECT_FALSE(mapsForWriting("7f00-7f10 rw-p 00000000 00:1a 4711   /dev/shm/eth1\n", file));
    EXPECT_FALSE(mapsForWriting("7f00-7f10 rw-s 00000000 00:1b 4711   /dev/shm/eth1\n", file));
    EXPECT_FALSE(mapsForWriting("7f00-7f10 rw-s 00000000 00:1a 4712   /dev/shm/eth1\n", file));
}

TEST(RecordWriters, AreThoseThatHaveTheFileMappedForWriting) {
    EXPECT_EQ(Mapping::kWritable,
              mappingOf(getpid(), MappedFile(PROT_READ | PROT_WRITE).identity()));
    EXPECT_EQ(Mapping::kNone, mappingOf(getpid(), MappedFile(PROT_READ).identity()));
}

TEST(RecordWriters, AreNotThoseOfTheSameInodeInAnotherContainer) {
    const MappedFile file(PROT_READ | PROT_WRITE);
    FileIdentity theirs = file.identity();
    ++theirs.minor;
    EXPECT_EQ(Mapping::kNone, mappingOf(getpid(), theirs));
}

TEST(RecordWriters, AreNotThoseThatHaveEnded) {
    const MappedFile file(PROT_READ | PROT_WRITE);
    const pid_t child = fork();
    if (child == 0) {
        _exit(0);
    }
    siginfo_t ended{};
    ASSERT_EQ(0, waitid(P_PID, static_cast<id_t>(child), &ended, WEXITED | WNOWAIT));
    EXPECT_EQ(Mapping::kNone, mappingOf(child, file.identity()));
    waitpid(child, nullptr, 0);
    EXPECT_EQ(Mapping::kNone, mappingOf(child, file.identity()));
}

TEST(RecordWriters, ThereIsNoIdentityWithoutAFile) {
    EXPECT_FALSE(identityOf("/dev/shm/no-such-file"));
    EXPECT_FALSE(identityOf(""));
}

TEST(PacketSockets, AreToldByTheirInterface) {
    constexpr char kList[] =
        "sk               RefCnt Type Proto  Iface R Rmem   User   Inode\n"
        "ffff888007a5f000 3      3    0003   12    1 0      0      22467\n";
    std::istringstream list(kList);
    EXPECT_TRUE(hasPacketSocket(list, 12));
    for (const unsigned int other : {1U, 2U, 3U}) {
        std::istringstream again(kList);
        EXPECT_FALSE(hasPacketSocket(again, other)) << other;
    }
}

TEST(PacketSockets, MayBeThereOnAnInterfaceThatIsNotHere) {
    EXPECT_TRUE(mayBeListenedTo("no-such-one"));
}

}  // namespace
}  // namespace tsyn
