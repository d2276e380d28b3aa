/* What the C++ library of Debian's Emscripten lacks of C++20. Every source in C++ includes this
 * first. The module has one thread, so that every access is atomic as it is. */
#ifdef __cplusplus
#include <atomic>
#include <bit>

namespace std {
#if !defined(__cpp_lib_atomic_ref)
template <class T> struct atomic_ref {
    T *at;
    explicit atomic_ref(T &value) : at(&value) {}
    T load(memory_order = memory_order_seq_cst) const { return *at; }
    bool compare_exchange_strong(T &expected, T value, memory_order = memory_order_seq_cst) const {
        const bool same = *at == expected;
        (same ? *at : expected) = same ? value : *at;
        return same;
    }
};
#endif
#if !defined(__cpp_lib_bit_cast)
template <class To, class From> constexpr To bit_cast(const From &value) {
    return __builtin_bit_cast(To, value);
}
#endif
} // namespace std
#endif
