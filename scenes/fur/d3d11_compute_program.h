// The compute check's program for Direct3D 11, as shader-model-5 byte code
// made here rather than compiled from HLSL: the run-time HLSL compilers the
// program meets do not all build compute programs (Wine's knows neither the
// thread-index semantics nor writable buffers), while every Direct3D 11
// runtime takes byte code. Platform-independent, so that it is checked on
// every build.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace d3d11_compute {

// Threads per group; the check dispatches kComputeValues / kGroupSize groups.
constexpr uint32_t kGroupSize = 64;

// A cs_5_0 program that writes ComputeCheckValue(i) (kComputeRounds rounds)
// for each thread index i into element i of the structured buffer (stride 4)
// bound as unordered-access view 0: a whole container, checksum included.
std::vector<uint8_t> CheckProgram();

// The container's checksum: MD5's compression over everything after the
// checksum field, with the container format's own way of closing the last
// block (the bit count first, and a marker in the last word).
std::array<uint32_t, 4> ContainerChecksum(const uint8_t* blob, size_t size);

// One MD5 compression of a 64-byte block into `state` (for the tests).
void Md5Compress(std::array<uint32_t, 4>* state, const uint8_t block[64]);

}  // namespace d3d11_compute
