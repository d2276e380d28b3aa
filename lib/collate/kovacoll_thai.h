// The Thai method: what a text weighs, number by number, and the order of two texts. First comes
// the base text, in which a leading vowel follows the character after it, then the marks above and
// below, each as two numbers: its place in the base text and its code.
#ifndef KOVACOLL_THAI_H
#define KOVACOLL_THAI_H

#include "record/kovacoll_data.h"

#include <array>

enum thai_class : unsigned { thai_end, thai_ordinary, thai_vowel, thai_mark };

inline unsigned class_of_thai(unsigned c) {
    if (c - 0xE0 <= 0xE4 - 0xE0) return thai_vowel;
    if (c - 0xE7 <= 0xEE - 0xE7) return thai_mark;
    return c ? thai_ordinary : thai_end;
}

// The number of a mark. Characters of the base text are numbered by their codes, whose order is
// that of dictionaries.
inline unsigned number_of_mark(unsigned c) { return c - 0xE7 + 0x8E; }

// Where the walk over a text is: between characters, after a leading vowel, between the character
// after it and the vowel, or in its second round, that of the marks.
enum thai_state : unsigned { thai_between, thai_waits, thai_due, thai_marks };

// What a walk does: deliver its next number, read on, or begin its second round.
enum thai_action : uint8_t { thai_delivers, thai_reads, thai_turns };

constexpr uint8_t thai_step(unsigned type, unsigned state) {
    if (state == thai_due) return thai_delivers;
    if (state == thai_marks)
        return type == thai_end || type == thai_mark ? thai_delivers : thai_reads;
    if (type == thai_mark) return thai_reads;
    if (state == thai_waits) return thai_delivers;
    return type == thai_end ? thai_turns : type == thai_vowel ? thai_reads : thai_delivers;
}

// The actions of two walks, that of the second times four: by the class of the first one's next
// character, plus four times that of the second one's, plus 16 times the states likewise.
constexpr auto thai_cmp_table = [] {
    std::array<uint8_t, 256> table{};
    for (unsigned i = 0; i < table.size(); ++i)
        table[i] = uint8_t(thai_step(i & 3, i >> 4 & 3) | thai_step(i >> 2 & 3, i >> 6) << 2);
    return table;
}();

// Text has take(), which returns 0 at the end, and can be copied to begin again.
template <class Text> struct thai_walk {
    Text text, begin;
    unsigned next, type, state = thai_between;
    unsigned vowel = 0;  // a leading vowel that waits for the next character, or follows it
    size_t place = 0;    // in the second round: characters of the base text so far
    bool marked = false; // there are marks
    bool placed = false; // the place of the mark at hand has been delivered

    explicit thai_walk(const Text &t) : text(t), begin(t) { read(); }
    void read() {
        next = take(text);
        type = class_of_thai(next);
    }
};

// Reads a character that is not delivered where it stands.
template <class Text> static inline void thai_read(thai_walk<Text> &walk) {
    if (walk.type == thai_mark) {
        walk.marked = true;
    } else if (walk.type == thai_vowel && !walk.vowel) {
        walk.vowel = walk.next;
        if (walk.state == thai_between) walk.state = thai_waits;
    } else { // in the second round
        walk.place += walk.vowel ? 2 : 1;
        walk.vowel = 0;
    }
    walk.read();
}

template <class Text> static inline void thai_turn(thai_walk<Text> &walk) {
    walk.state = thai_marks;
    if (!walk.marked) return;
    walk.text = walk.begin;
    walk.read();
}

// A mark's place is that of the base character it stands on, counted from 1.
template <class Text> static inline size_t thai_deliver_mark(thai_walk<Text> &walk) {
    walk.placed = !walk.placed;
    if (walk.placed) return walk.place ? walk.place : 1;
    const unsigned number = number_of_mark(walk.next);
    walk.read();
    return number;
}

template <class Text> static inline size_t thai_deliver(thai_walk<Text> &walk) {
    if (walk.state == thai_due || (walk.state == thai_waits && walk.type == thai_end)) {
        const unsigned number = walk.vowel;
        walk.vowel = 0;
        walk.state = thai_between;
        return number;
    }
    if (walk.type == thai_end) return 0;
    if (walk.state == thai_marks) return thai_deliver_mark(walk);
    const unsigned number = walk.next;
    if (walk.state == thai_waits) walk.state = thai_due;
    walk.read();
    return number;
}

template <class Text> static inline void thai_act(thai_walk<Text> &walk, unsigned action) {
    if (action == thai_reads) thai_read(walk);
    if (action == thai_turns) thai_turn(walk);
}

// The next number of a text; 0 at its end.
template <class Text> static inline size_t thai_next(thai_walk<Text> &walk) {
    while (const unsigned action = thai_cmp_table[walk.type | walk.state << 4] & 3)
        thai_act(walk, action);
    return thai_deliver(walk);
}

template <class Text> static int thai_order(const Text &a, const Text &b) {
    thai_walk<Text> x(a), y(b);
    for (;;) {
        const unsigned actions = thai_cmp_table[x.type | y.type << 2 | x.state << 4 | y.state << 6];
        if (actions) {
            thai_act(x, actions & 3);
            thai_act(y, actions >> 2);
            continue;
        }
        const size_t first = thai_deliver(x), second = thai_deliver(y);
        if (first != second) return first < second ? -1 : 1;
        if (!first) return 0;
    }
}

#endif
