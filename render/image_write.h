// Saving pictures the program made (screenshots).
#pragma once

#include <string>

// rgba: width*height*4 bytes, top row first. False when the file cannot be written.
bool WritePng(const std::string& path, const std::string& rgba, int width, int height);
