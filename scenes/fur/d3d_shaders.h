// Shader compilation for the Direct3D back-ends, through the system's
// shader compiler library loaded at run time: a machine without it gets a
// log line and the test ends, instead of a program that will not start.
#pragma once

#include <string>
#include <vector>

namespace d3d_shaders {

// HLSL text to byte code for one entry point and target ("vs_4_0", ...).
bool Compile(const std::string& source, const char* entry, const char* target, std::vector<unsigned char>* code,
             std::string* error);

// Shader assembly text ("vs_3_0" ... ) to byte code.
bool Assemble(const std::string& source, std::vector<unsigned char>* code, std::string* error);

}  // namespace d3d_shaders
