// Orders and keys of texts in either form.
#ifndef HOST_ORDER_H
#define HOST_ORDER_H

#include <gtest/gtest.h>

#include "kova_host.h"

#include <string>

inline int sign(int n) { return (n > 0) - (n < 0); }

inline int order(ko_lc_t loc, const std::string &a, const std::string &b) {
    return ko_utf8scoll(loc, a.data(), a.size(), b.data(), b.size());
}
inline int order(ko_lc_t loc, const std::u16string &a, const std::u16string &b) {
    return ko_utf16scoll(loc, a.data(), a.size(), b.data(), b.size());
}

inline int64_t put_key(ko_lc_t loc, char *dst, size_t room, const std::string &text) {
    return ko_utf8sxfrm(loc, dst, room, text.data(), text.size());
}
inline int64_t put_key(ko_lc_t loc, char *dst, size_t room, const std::u16string &text) {
    return ko_utf16sxfrm(loc, dst, room, text.data(), text.size());
}

template <class Text> std::string made_key(ko_lc_t loc, const Text &text) {
    std::string made(text.size() * 90 + 64, 'x');
    const int64_t n = put_key(loc, made.data(), made.size(), text);
    EXPECT_TRUE(n >= 0 && n < int64_t(made.size())) << n;
    return made.substr(0, n < 0 ? 0 : size_t(n));
}
inline std::string key(ko_lc_t loc, const std::string &text) { return made_key(loc, text); }
inline std::string key(ko_lc_t loc, const std::u16string &text) { return made_key(loc, text); }

#endif
