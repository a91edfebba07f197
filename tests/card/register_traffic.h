/**
 * The register accesses of this program, seen as they are asked of the SDK: a trace in which the millions of
 * accesses of the contract tables stay readable, and registers that answer what a test wants.
 *
 *     0x1000 = 0xf                  written
 *     0x2032 -> 0x3                 read
 *     0x11000[33] = 0x36327563      the word 33 of the table whose write address register is 0x11000: its data,
 *                                   then its address was written
 *     0x11000[34..36] = 0           the same, one word after the other, of zeros
 *     0x11000[33] -> 0x36327563     its address was written, then its data read
 *
 * Accesses of a table that are anything else stand alone, as those of every other register.
 */
#ifndef KOVA_TESTS_CARD_REGISTER_TRAFFIC_H
#define KOVA_TESTS_CARD_REGISTER_TRAFFIC_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace kova::test {

class RegisterTraffic {
 public:
    /** Records accesses that succeed, from nothing. */
    static void start_recording();
    /** What has been recorded; ends the recording. */
    [[nodiscard]] static std::vector<std::string> stop_recording();

    /** Reads of the register give these values in turn, and the last one from then on. */
    static void answer(std::uint32_t number, std::vector<std::uint64_t> values);

    /** Called before each access. */
    static void before_each(std::function<void(bool is_write, std::uint32_t number)> action);

    /** Ends everything that has been asked for. */
    static void reset();
};

}  // namespace kova::test

#endif  // KOVA_TESTS_CARD_REGISTER_TRAFFIC_H
