// Compiles fmt's own code once instead of in every file. Debian has the library for this machine
// only, and all our builds should use the same code.
#include <fmt/format-inl.h>

FMT_BEGIN_NAMESPACE
namespace detail {

template auto dragonbox::to_decimal(float value) noexcept -> dragonbox::decimal_fp<float>;
template auto dragonbox::to_decimal(double value) noexcept -> dragonbox::decimal_fp<double>;

template auto locale_ref::get<std::locale>() const -> std::locale;
template auto thousands_sep_impl(locale_ref locale) -> thousands_sep_result<char>;
template auto thousands_sep_impl(locale_ref locale) -> thousands_sep_result<wchar_t>;
template auto decimal_point_impl(locale_ref locale) -> char;
template auto decimal_point_impl(locale_ref locale) -> wchar_t;

}  // namespace detail
FMT_END_NAMESPACE
