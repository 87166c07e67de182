// Encodings of each structure type, written by the grammar of its RFC, and the size of the record that they decode to.
#ifndef CERTKERN_TESTS_BER_SAMPLES_H
#define CERTKERN_TESTS_BER_SAMPLES_H

#include <cstddef>
#include <cstdint>
#include <span>

struct Sample {
  const char* name;
  uintptr_t type;
  const char* hex;
  size_t recordSize;  // what decoding asks for
  bool reencodes;     // the encoder gives the same bytes
};

std::span<const Sample> Samples();

#endif
