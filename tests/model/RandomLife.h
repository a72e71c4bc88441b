#pragma once

#include <cstdint>
#include <random>

#include "tests/model/Step.h"

namespace com_tesk::test {

/// How often each group of steps occurs, relative to the others.
struct Weights {
    unsigned int registration = 30;
    unsigned int unregistration = 20;
    unsigned int publication = 20;
    unsigned int confirmation = 30;
    unsigned int update = 10;
    unsigned int version = 2;
    unsigned int damagedMessage = 3;
    unsigned int loss = 2;
    unsigned int close = 1;
    unsigned int failedWrite = 2;
    unsigned int callbacks = 4;
    unsigned int inside = 4;
    unsigned int wait = 1;
    unsigned int other = 3;
};

/// A life of `count` steps, drawn with so few names and ids that they keep meeting.
Life randomLife(std::mt19937_64& random, std::size_t count, const Weights& weights);

}  // namespace com_tesk::test
