// Soak: millions of traces and errors through DBG_Log while "DBG out"
// commands switch the output among the console (standard output on
// /dev/null), two trace files and the IMC manager. Every file's content and
// every trace the IMC manager writes are compared with a model byte for byte
// (the IMC side through a rolling hash of the stand-in's trace stream), and
// resident memory and open descriptors must stay flat after a warm-up.
//
// DBG_SOAK_COUNT sets the number of traces (default 10000000; smaller
// defaults where the build runs emulated or instrumented, said in the output).
#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <streambuf>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "DBG_CmdObserver.h"
#include "DBG_Log.h"
#include "DBG_OutManager.h"
#include "ImcProbe.h"
#include "TestSupport.h"

#if defined(__SANITIZE_ADDRESS__)
extern "C" std::size_t __sanitizer_get_current_allocated_bytes();
#endif

namespace {

constexpr unsigned long defaultCount = 10000000;
constexpr unsigned long segmentLength = 1000;  // traces between two switches

// The default for this build, and why it is smaller when it is.
unsigned long soakCount(std::string* note)
{
    if (char const* text = std::getenv("DBG_SOAK_COUNT")) {
        char* end = nullptr;
        unsigned long const count = std::strtoul(text, &end, 10);
        if (end != text && *end == '\0' && count >= 100 * segmentLength) {
            *note = "soak count " + std::to_string(count) + " from DBG_SOAK_COUNT";
            return count;
        }
        *note = "DBG_SOAK_COUNT=" + std::string(text) + " is not a count of at least " +
                std::to_string(100 * segmentLength) + "; using the default";
    }
#if defined(__powerpc__)
    *note += (note->empty() ? "" : "; ") + std::string("soak count 1000000 under emulation (qemu-ppc runs this "
                                                       "build about 15 times slower than the host)");
    return 1000000;
#elif defined(__SANITIZE_ADDRESS__)
    *note += (note->empty() ? "" : "; ") + std::string("soak count 2000000 under AddressSanitizer (every "
                                                       "allocation is instrumented, about 5 times slower)");
    return 2000000;
#else
    return defaultCount;
#endif
}

// FNV-1a over a byte stream, fed piece by piece.
struct RollingHash {
    std::uint64_t value = 0xcbf29ce484222325ull;
    std::uint64_t bytes = 0;

    void add(char const* data, std::size_t size)
    {
        for (std::size_t i = 0; i < size; ++i) {
            value ^= static_cast<unsigned char>(data[i]);
            value *= 0x100000001b3ull;
        }
        bytes += size;
    }
    void add(std::string const& text) { add(text.data(), text.size()); }
    bool operator==(RollingHash const& other) const { return value == other.value && bytes == other.bytes; }
};

// The IMC stand-in's trace stream: hashes what it is given, keeps nothing.
class HashingBuffer : public std::streambuf {
public:
    RollingHash hash;

protected:
    int overflow(int c) override
    {
        if (!traits_type::eq_int_type(c, traits_type::eof())) {
            char const byte = traits_type::to_char_type(c);
            hash.add(&byte, 1);
        }
        return traits_type::not_eof(c);
    }
    std::streamsize xsputn(char const* data, std::streamsize count) override
    {
        hash.add(data, static_cast<std::size_t>(count));
        return count;
    }
};

// Under AddressSanitizer resident memory grows with the quarantine of freed
// blocks (up to 256 MiB) whatever the library does; the live heap is what
// must stay flat there.
#if defined(__SANITIZE_ADDRESS__)
constexpr bool residentIsMeaningful = false;
long liveHeapKiB()
{
    return static_cast<long>(__sanitizer_get_current_allocated_bytes() / 1024);
}
#else
constexpr bool residentIsMeaningful = true;
long liveHeapKiB()
{
    return 0;
}
#endif

long residentPages()
{
    std::ifstream statm("/proc/self/statm");
    long size = 0;
    long resident = -1;
    statm >> size >> resident;
    return resident;
}

int openDescriptors()
{
    int count = 0;
    if (DIR* dir = opendir("/proc/self/fd")) {
        while (dirent* entry = readdir(dir))
            if (entry->d_name[0] != '.')
                ++count;
        closedir(dir);
    }
    return count - 1;  // the directory's own descriptor
}

// Texts of varying length, with percent signs where they are doubled.
char const* const prefixes[] = {"", "call ", "load 50% on trunk ", "%", "release cause 16 after 100%% of ",
                                "a rather longer trace text that makes the next ones shorter than it, number "};
char const* const escapedPrefixes[] = {"", "call ", "load 50%% on trunk ", "%%",
                                       "release cause 16 after 100%%%% of ",
                                       "a rather longer trace text that makes the next ones shorter than it, number "};
constexpr std::size_t prefixCount = sizeof prefixes / sizeof prefixes[0];

enum class Sink { Console, FileA, Imc, FileB };

// Standard output goes to /dev/null while it lives.
class StdoutToDevNull {
public:
    StdoutToDevNull()
    {
        std::cout.flush();
        std::fflush(stdout);
        m_saved = dup(1);
        int const devNull = open("/dev/null", O_WRONLY | O_CLOEXEC);
        dup2(devNull, 1);
        close(devNull);
    }
    ~StdoutToDevNull()
    {
        std::cout.flush();
        std::fflush(stdout);
        dup2(m_saved, 1);
        close(m_saved);
    }

private:
    int m_saved = -1;
};

}  // namespace

TEST(Soak, TracesAndErrorsWhileTheOutputIsSwitchedStayExactAndFlat)
{
    std::string note;
    unsigned long const count = soakCount(&note);
    if (!note.empty())
        std::printf("[ NOTE     ] %s\n", note.c_str());

    ScratchDir scratch;
    char previousDirectory[4096];
    ASSERT_NE(getcwd(previousDirectory, sizeof previousDirectory), nullptr);
    // Relative names: the scratch path itself could hold "std" or "imc".
    ASSERT_EQ(chdir(scratch.path().c_str()), 0);

    ImcSession session;
    imc_standin::setRecording(false);
    HashingBuffer imcBuffer;
    std::ostream imcStream(&imcBuffer);
    imc_standin::setTraceStream(&imcStream);
    std::vector<std::string> answers;
    imc_standin::setAnswerHandler([&answers](std::string const& answer) { answers.push_back(answer); });

    DBG_CmdObserver* const observer = DBG_OutManager::instance()->pCmdObserver;
    ASSERT_NE(observer, nullptr);
    DBG_Log const log;

    RollingHash imcModel;
    std::string fileModel;
    std::string failure;
    unsigned long segments = 0;
    unsigned long checkedFiles = 0;
    long residentAfterWarmUp = -1;
    int descriptorsAfterWarmUp = -1;
    long residentAtEnd = -1;
    int descriptorsAtEnd = -1;
    long heapAfterWarmUp = 0;
    long heapAtEnd = 0;
    unsigned long const warmUp = (count / 10 / (4 * segmentLength)) * 4 * segmentLength;
    auto const started = std::chrono::steady_clock::now();
    {
        StdoutToDevNull quiet;
        Sink sink = Sink::Console;
        std::string fileName;
        auto select = [&](Sink next) {
            // Leaving a file: it is closed by the switch and must hold the
            // model's bytes exactly.
            std::string const leftFile = (sink == Sink::FileA || sink == Sink::FileB) ? fileName : "";
            std::string command;
            std::string answer;
            switch (next) {
            case Sink::Console: command = "DBG out std"; answer = "console"; break;
            case Sink::Imc: command = "DBG out imc"; answer = "IMC"; break;
            case Sink::FileA:
            case Sink::FileB:
                fileName = next == Sink::FileA ? "a.trace" : "b.trace";
                command = "DBG out file " + fileName;
                answer = "file " + fileName;
                break;
            }
            answers.clear();
            observer->command(command, 0);
            if (answers != std::vector<std::string>{"Debug Output set to " + answer + "\n"} && failure.empty())
                failure = "segment " + std::to_string(segments) + ": wrong answer to " + command;
            if (!leftFile.empty()) {
                std::ifstream file(leftFile, std::ios::binary);
                std::string const content((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
                if (content != fileModel && failure.empty())
                    failure = "segment " + std::to_string(segments) + ": " + leftFile + " holds " +
                              std::to_string(content.size()) + " bytes, model " + std::to_string(fileModel.size());
                ++checkedFiles;
            }
            if (sink == Sink::Imc && !(imcBuffer.hash == imcModel) && failure.empty())
                failure = "segment " + std::to_string(segments) + ": the IMC traces differ from the model after " +
                          std::to_string(imcModel.bytes) + " bytes";
            fileModel.clear();
            sink = next;
            ++segments;
        };
        select(Sink::Console);

        std::string text;
        std::string expected;
        for (unsigned long i = 0; i < count && failure.empty(); ++i) {
            if (i % segmentLength == 0 && i != 0) {
                select(static_cast<Sink>((i / segmentLength) % 4));
                if (i == warmUp) {
                    residentAfterWarmUp = residentPages();
                    descriptorsAfterWarmUp = openDescriptors();
                    heapAfterWarmUp = liveHeapKiB();
                }
            }
            std::size_t const kind = i % prefixCount;
            std::string const number = std::to_string(i);
            text.assign(prefixes[kind]).append(number);
            expected.assign(escapedPrefixes[kind]).append(number);
            int const line = static_cast<int>(i % 100000);
            bool const isError = i % 8 == 7;
            if (isError) {
                std::string const detail = "errno " + std::to_string(i % 133) + " 5%";
                log.error(text, detail, "soak.cpp", line);
                expected.append("(").append(detail).append(")");
            } else {
                log.trace(text, "soak.cpp", line);
            }
            if (sink == Sink::FileA || sink == Sink::FileB) {
                fileModel += expected;
            } else if (sink == Sink::Imc) {
                imcModel.add(isError ? "IMC ERROR soak.cpp:" : "IMC trace soak.cpp:");
                imcModel.add(std::to_string(line));
                imcModel.add(" ", 1);
                imcModel.add(expected);
                imcModel.add("\n", 1);
            }
        }
        // Back on the console, as at the warm-up sample, standard output
        // still on /dev/null.
        select(Sink::Console);
        residentAtEnd = residentPages();
        descriptorsAtEnd = openDescriptors();
        heapAtEnd = liveHeapKiB();
    }
    double const seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();

    imc_standin::setAnswerHandler(nullptr);
    imc_standin::setTraceStream(nullptr);
    EXPECT_EQ(chdir(previousDirectory), 0);

    EXPECT_EQ(failure, "");
    ASSERT_GT(residentAfterWarmUp, 0);
    long const pageKiB = sysconf(_SC_PAGESIZE) / 1024;
    // A little slack for the allocator's own bookkeeping; a leak of even a
    // byte per trace would be megabytes.
    if (residentIsMeaningful) {
        EXPECT_LE((residentAtEnd - residentAfterWarmUp) * pageKiB, 1024)
            << "resident memory grew from " << residentAfterWarmUp * pageKiB << " KiB to "
            << residentAtEnd * pageKiB << " KiB";
    } else {
        std::printf("[ NOTE     ] resident memory holds AddressSanitizer's quarantine of freed blocks; the live "
                    "heap is checked instead: %ld -> %ld KiB\n",
                    heapAfterWarmUp, heapAtEnd);
        EXPECT_LE(heapAtEnd - heapAfterWarmUp, 64) << "the live heap grew from " << heapAfterWarmUp << " KiB to "
                                                   << heapAtEnd << " KiB";
    }
    EXPECT_EQ(descriptorsAtEnd, descriptorsAfterWarmUp);
    std::printf("[ SOAK     ] %lu traces and errors, %lu switches, %lu files and %llu IMC bytes checked, "
                "%.1f s; resident %ld -> %ld KiB, descriptors %d -> %d\n",
                count, segments, checkedFiles, static_cast<unsigned long long>(imcModel.bytes), seconds,
                residentAfterWarmUp * pageKiB, residentAtEnd * pageKiB, descriptorsAfterWarmUp, descriptorsAtEnd);
}
