#include "sim/exchange/product.h"

#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <stdexcept>
#include <utility>

#include "sim/exchange/product_data.h"
#include "sim/exchange/toml_file.h"

namespace kova::sim {

namespace {

constexpr double kHundredths = 100;

/** What a mistake in the data raises, when the products are first asked for. */
[[noreturn]] void refuse(const toml::node& node, const std::string& reason) {
    throw std::logic_error("products.toml:" + std::to_string(node.source().begin.line) + ": " + reason);
}

const toml::node& member(const toml::table& table, std::string_view key) {
    const toml::node* node = table.get(key);
    if (node == nullptr) {
        refuse(table, std::string(key) + " is missing");
    }
    return *node;
}

const toml::table& table_at(const toml::table& table, std::string_view key) {
    const toml::table* found = member(table, key).as_table();
    return found != nullptr ? *found : (refuse(table, std::string(key) + " is no table"), table);
}

std::string text_at(const toml::table& table, std::string_view key) {
    const auto text = member(table, key).value_exact<std::string>();
    return text ? *text : (refuse(table, std::string(key) + " is no text"), std::string());
}

double number(const toml::node& node) {
    const auto value = node.value<double>();
    return value && *value >= 0 ? *value : (refuse(node, "no number of 0 or above"), 0.0);
}

std::int32_t hundredths(const toml::node& node) {
    return static_cast<std::int32_t>(std::llround(number(node) * kHundredths));
}

std::int32_t permille(const toml::node& node) {
    return static_cast<std::int32_t>(std::llround(number(node) * 10));
}

std::uint32_t count(const toml::node& node) {
    return static_cast<std::uint32_t>(std::llround(number(node)));
}

std::uint32_t optional_count(const toml::table& table, std::string_view key) {
    const toml::node* node = table.get(key);
    return node == nullptr ? 0 : count(*node);
}

std::chrono::year_month_day first_day(const toml::table& table) {
    const auto date = table["since"].value<toml::date>();
    if (!date) {
        return std::chrono::year{2000} / std::chrono::January / 1;
    }
    return {std::chrono::year{date->year}, std::chrono::month{date->month}, std::chrono::day{date->day}};
}

template <typename Enum>
Enum one_of(const toml::table& table, std::string_view key,
            std::initializer_list<std::pair<std::string_view, Enum>> names) {
    const std::string text = text_at(table, key);
    for (const auto& [name, value] : names) {
        if (text == name) {
            return value;
        }
    }
    refuse(table, std::string(key) + " cannot be \"" + text + "\"");
}

/** [[up to, step], ...] with 0 for "all above" becomes steps by the price that they start above. */
std::vector<StrikeStep> strike_steps(const toml::table& options) {
    const toml::array* pairs = member(options, "strikes").as_array();
    std::vector<StrikeStep> steps;
    std::int32_t from = 0;
    for (const toml::node& entry : *pairs) {
        const toml::array& pair = *entry.as_array();
        steps.push_back({.from = from, .step = hundredths(pair[1])});
        from = hundredths(pair[0]);
    }
    return steps;
}

OptionRule read_options(const toml::table& table) {
    return {
        .since = first_day(table),
        .tick = hundredths(member(table, "tick")),
        .months = count(member(table, "months")),
        .days_before = count(member(table, "days_before")),
        .band_permille = permille(member(table, "band")),
        .volatility_permille = permille(member(table, "volatility")),
        .strikes = strike_steps(table),
    };
}

void read_months(const toml::table& months, Product& product) {
    product.consecutive = optional_count(months, "consecutive");
    product.within = optional_count(months, "within");
    if (const toml::array* later = months["later"].as_array()) {
        for (const toml::node& month : *later) {
            product.later_months.push_back(count(month));
        }
    }
}

Product read_product(const toml::table& table) {
    Product product{
        .code = text_at(table, "code"),
        .name = text_at(table, "name"),
        .exchange = one_of<Exchange>(table, "exchange", {{"SHFE", Exchange::shfe}, {"INE", Exchange::ine}}),
        .since = first_day(table),
        .tick = hundredths(member(table, "tick")),
        .multiplier = count(member(table, "multiplier")),
        .price = hundredths(member(table, "price")),
        .limit_permille = permille(member(table, "limit")),
        .activity = count(member(table, "activity")),
        .last_day = one_of<LastDay>(table, "last_day",
                                    {{"day 15", LastDay::day_15},
                                     {"month before", LastDay::month_before},
                                     {"last monday", LastDay::last_monday}}),
        .consecutive = 0,
        .later_months = {},
        .within = 0,
        .tas_months = optional_count(table, "tas"),
        .options = {},
    };
    read_months(table_at(table, "months"), product);
    if (table.contains("options")) {
        product.options = read_options(table_at(table, "options"));
    }
    return product;
}

std::vector<Product> read_products() {
    const toml::table data = read_toml(kProductData);
    std::vector<Product> products;
    for (const toml::node& entry : *member(data, "product").as_array()) {
        products.push_back(read_product(*entry.as_table()));
    }
    std::ranges::sort(products, {}, &Product::code);
    return products;
}

}  // namespace

const std::vector<Product>& products() {
    static const std::vector<Product> all = read_products();
    return all;
}

const Product* find_product(std::string_view code) {
    const auto found = std::ranges::lower_bound(products(), code, {}, &Product::code);
    return found != products().end() && found->code == code ? &*found : nullptr;
}

}  // namespace kova::sim
