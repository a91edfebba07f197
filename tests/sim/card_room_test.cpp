// Cards where there is little room for shared memory.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <functional>
#include <optional>
#include <string>

#include "sim/card/attached_card.h"
#include "sim/card/card.h"
#include "support/card_index.h"

namespace {

bool knows_populating = true;

}  // namespace

// Before that of the C library, for all objects of this program: a kernel older than 5.14 when a test says so.
extern "C" __attribute__((visibility("default"))) int madvise(void* place, std::size_t bytes,
                                                              int advice) noexcept {
    if (advice == MADV_POPULATE_WRITE && !knows_populating) {
        errno = EINVAL;
        return -1;
    }
    return static_cast<int>(syscall(SYS_madvise, place, bytes, advice));
}

namespace kova::sim {
namespace {

std::size_t page_bytes() {
    return static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

// The pages of what every card is sure to write, in bytes.
std::size_t registers_and_tables() {
    return (sizeof(CardMemory) + page_bytes() - 1) / page_bytes() * page_bytes();
}

// Whether /dev/shm is now one of this process's own with room for this many bytes.
bool has_own_shared_memory(std::size_t bytes) {
    const auto user = std::to_string(getuid());
    const auto group = std::to_string(getgid());
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) {
        return false;
    }
    std::ofstream("/proc/self/setgroups") << "deny";
    std::ofstream("/proc/self/uid_map") << "0 " << user << " 1";
    std::ofstream("/proc/self/gid_map") << "0 " << group << " 1";
    const std::string size = "size=" + std::to_string(bytes);
    return mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           mount("none", "/dev/shm", "tmpfs", 0, size.c_str()) == 0;
}

// What a body says in a process that has room for this many bytes of shared memory. Nothing where processes may
// not have such room of their own.
std::optional<std::string> with_room_for(std::size_t bytes, const std::function<std::string()>& body) {
    constexpr int kNoRoomOfItsOwn = 77;
    int ends[2] = {-1, -1};
    EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const pid_t child = fork();
    if (child == 0) {
        if (!has_own_shared_memory(bytes)) {
            _exit(kNoRoomOfItsOwn);
        }
        const std::string said = body();
        _exit(write(ends[1], said.data(), said.size()) == static_cast<ssize_t>(said.size()) ? 0 : 1);
    }
    close(ends[1]);
    std::string said;
    std::array<char, 256> piece{};
    for (ssize_t size = 0; (size = read(ends[0], piece.data(), piece.size())) > 0;) {
        said.append(piece.data(), static_cast<std::size_t>(size));
    }
    close(ends[0]);
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    if (WIFEXITED(status) && WEXITSTATUS(status) == kNoRoomOfItsOwn) {
        return std::nullopt;
    }
    return WIFSIGNALED(status) ? "killed by " + std::string(strsignal(WTERMSIG(status))) : said;
}

// The end of a test: what a body has to say in such a process.
void expect_said(const std::string& expected, std::size_t bytes, const std::function<std::string()>& body) {
    const std::optional<std::string> said = with_room_for(bytes, body);
    if (!said) {
        GTEST_SKIP() << "no room of its own for a process";
    }
    EXPECT_EQ(*said, expected);
}

bool memory_exists(std::uint32_t index) {
    const int file = shm_open(card_memory_name(index).data(), O_RDONLY, 0);
    if (file >= 0) {
        close(file);
    }
    return file >= 0;
}

// Leaves no room in /dev/shm.
void fill_shared_memory() {
    const int file = shm_open("/filler", O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    const std::string page(page_bytes(), 'x');
    while (write(file, page.data(), page.size()) > 0) {
    }
}

// "open", or why the stream could not be opened.
template <typename Stream>
std::string opening_of(const AttachedCard& card, std::uint32_t channel) {
    const auto stream = Stream::open(card, channel);
    return stream != nullptr ? "open" : std::strerror(errno);
}

TEST(CardRoom, ACardWithoutRoomForItsRegistersAndTablesIsNotPowered) {
    expect_said(": No space left on device", registers_and_tables() - page_bytes(), [] {
        try {
            const Card card = Card::power_on(test::own_card());
            return std::string("powered");
        } catch (const CardError& error) {
            const std::string reason = error.what();
            return reason.substr(reason.find(": ")) + (memory_exists(test::own_card()) ? ", left behind" : "");
        }
    });
}

TEST(CardRoom, APoweredCardHasItsRegistersAndTablesWhateverElseFillsTheMemory) {
    expect_said("written", registers_and_tables(), [] {
        const Card card = Card::power_on(test::own_card());
        const AttachedCard client = attach(test::own_card());
        fill_shared_memory();
        CardMemory& memory = client->memory();
        for (auto& word : memory.registers.written) {
            word = 1;
        }
        std::memset(static_cast<void*>(&memory.tables), 1, sizeof memory.tables);
        return std::string("written");
    });
}

TEST(CardRoom, AStreamWithoutRoomForItsRingIsNotOpened) {
    expect_said("Cannot allocate memory; Cannot allocate memory; open; open", registers_and_tables(), [] {
        const Card card = Card::power_on(test::own_card());
        const AttachedCard client = attach(test::own_card());
        std::string openings = opening_of<CardToHostStream>(client, 5);
        openings += client->memory().channels[5].card_to_host.reader == 0 ? "" : ", but has a reader";
        openings += "; " + opening_of<HostToCardStream>(client, 5);
        // More room is found for it, and nothing is in its way any more.
        if (mount(nullptr, "/dev/shm", nullptr, MS_REMOUNT, "size=64m") != 0) {
            return std::string(std::strerror(errno));
        }
        openings += "; " + opening_of<CardToHostStream>(client, 5);
        return openings + "; " + opening_of<HostToCardStream>(client, 5);
    });
}

TEST(CardRoom, AStreamIsOpenedWhereTheKernelCannotPopulateItsRing) {
    const Card card = Card::power_on_privately(0, {.slots_log2 = 6});
    knows_populating = false;
    EXPECT_NE(CardToHostStream::open(attach(0), 5), nullptr);
    EXPECT_NE(HostToCardStream::open(attach(0), 5), nullptr);
    knows_populating = true;
}

}  // namespace
}  // namespace kova::sim
