// What every test includes anyway, parsed once.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "pch_core.h"
