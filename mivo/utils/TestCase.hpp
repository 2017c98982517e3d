// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/testcase/MatrixMarket.hpp"
#include "mivo/testcase/PoissonFDM.hpp"
#include "mivo/testcase/TestCase.hpp"
