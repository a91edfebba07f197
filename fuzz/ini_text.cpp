// A configuration file: read whole, asked for everything that stands in it and for what the engine asks.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "config/ReadConfig.h"
#include "fuzz/input.h"
#include "fuzz/memory_file.h"
#include "fuzz/require.h"

namespace kova::fuzz {
namespace {

constexpr std::string_view kBlanks = " \t\r\n";
constexpr std::uint32_t kDefault = 0xFEDCBA98;

bool is_trimmed(const std::string& text) {
    return text.empty() ||
           (kBlanks.find(text.front()) == kBlanks.npos && kBlanks.find(text.back()) == kBlanks.npos);
}

/** All ways of asking agree with each other. */
void ask(const CIniReader& ini, const std::string& section, const std::string& key) {
    const char* const s = section.c_str();
    const char* const k = key.c_str();
    std::string value = "untouched";
    const bool is_there = ini.ReadCommon(s, k, value);
    require(is_there || value == "untouched", "what is missing touches nothing");
    require(is_trimmed(value), "values are trimmed");
    require(ini.ReadString(s, k, "default") == (is_there ? value : "default"), "a text is the value");

    const std::int32_t number = ini.ReadInt32(s, k, static_cast<std::int32_t>(kDefault));
    const std::uint32_t unsigned_number = ini.ReadUInt32(s, k, kDefault);
    const std::uint16_t half = ini.ReadUInt16(s, k, static_cast<std::uint16_t>(kDefault));
    require(static_cast<std::uint32_t>(number) == unsigned_number, "both widths have the same bits");
    require(half == static_cast<std::uint16_t>(unsigned_number), "16 bits are the lowest ones");
    require(is_there || unsigned_number == kDefault, "what is missing is the default");
}

void ask_for_what_stands_there(const CIniReader& ini, std::string_view text) {
    std::string section;
    std::string key;
    std::string value;
    Input lines(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
    while (!lines.empty()) {
        const std::string section_before = section;
        const bool says_something = CIniReader::AnalyseLine(std::string(lines.line()), section, key, value);
        require(is_trimmed(key) && is_trimmed(value), "keys and values are trimmed");
        require(says_something || section == section_before, "a line that says nothing opens no section");
        ask(ini, section, key);
        ask(ini, "config", key);
    }
}

void read_as_the_engine_does(const CIniReader& ini) {
    const auto config = std::make_unique<U50ConfigInfo>();
    ReadProcessKeys(ini, *config);
    ReadFeedKeys(ini, *config);
    ReadNetworkKeys(ini, *config);
    ReadSwitchKeys(ini, *config);
    ReadFaultKeys(ini, *config);
    ReadChannelKeys(ini, *config);
    ReadSnapshotKeys(ini, *config);
    require((config->enabled_mask.enabled_mask & ~5U) == 0, "only two feeds can be switched on");
    require(config->last_tick_channel <= 0xFFFF, "there are sixteen channels");
    for (const U50ChannelInfo& channel : config->channelInfo) {
        require(channel.insts.Length() < channel.insts.Size(), "a list has its end");
        require(channel.recvall == (std::string_view(channel.insts.data()) == "all"), "all is all");
    }
}

void run(const std::uint8_t* data, std::size_t size) {
    static const MemoryFile file;
    file.write(data, size);
    CIniReader ini;
    require(ini.ReadConfig(file.path()), "the file can be opened");
    ask_for_what_stands_there(ini, {reinterpret_cast<const char*>(data), size});
    ask(ini, "config", "log_level");
    read_as_the_engine_does(ini);
}

}  // namespace
}  // namespace kova::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    kova::fuzz::run(data, size);
    return 0;
}
