#pragma once

namespace klangor::test {

// Memory bounds are the program's own: under AddressSanitizer its shadow memory and quarantine
// count too, so such bounds are not checked there.
#if defined(__SANITIZE_ADDRESS__)
inline constexpr bool MeasuresMemory = false;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
inline constexpr bool MeasuresMemory = false;
#else
inline constexpr bool MeasuresMemory = true;
#endif
#else
inline constexpr bool MeasuresMemory = true;
#endif

} // namespace klangor::test
