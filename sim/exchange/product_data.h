/** The text of products.toml, built in. */
#ifndef KOVA_SIM_EXCHANGE_PRODUCT_DATA_H
#define KOVA_SIM_EXCHANGE_PRODUCT_DATA_H

#include <string_view>

namespace kova::sim {

extern const std::string_view kProductData;

}  // namespace kova::sim

#endif  // KOVA_SIM_EXCHANGE_PRODUCT_DATA_H
