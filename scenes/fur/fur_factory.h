// The fur test objects this build provides, by class.
#pragma once

#include <memory>

#include "runner/catalogue.h"
#include "runner/lm4d_demo.h"

// Null (with a line in the event log) for a class this build does not have.
std::unique_ptr<cLm4DDemo> CreateFurDemo(DemoClass demoClass);
