// What a call gave together with the error that it left.
#ifndef ANSWER_H
#define ANSWER_H

#include "kova.h"

#include <ostream>
#include <type_traits>
#include <utility>

struct answer {
    long long result; // of a pointer, whether it is one
    int error;
    answer(long long given, int left) : result(given), error(left) {}
    bool operator==(const answer &) const = default;
};
inline void PrintTo(const answer &a, std::ostream *to) {
    *to << a.result << " with error " << a.error;
}

// The error word is 0 afterwards.
template <class T> answer answered(void *handle, T result) {
    const int error = std::exchange(*ko_ext_errno(handle), 0);
    if constexpr (std::is_pointer_v<T>)
        return {result != nullptr, error};
    else
        return {static_cast<long long>(result), error};
}

#endif
