// SPDX-License-Identifier: Apache-2.0
// Tells how many ranks the world has, and sums a distributed vector over them, through the public
// interface alone: no MPI_* call stands here.
#include <iostream>
#include <mivo/mat/ParMatrix.hpp>

int main() {
  mivo::Device::initialize();
  {
    mivo::ParMatrixT<double, long, int> x(1000, mivo::Device());
    x.fill(1.0);
    const double sum = decltype(x)::normL1(x);
    long begin = 0;
    long end = 0;
    x.getOwnerShipRange(&begin, &end);
    if (begin == 0) {
      std::cout << "ranks " << x.getRowPartitioner().getNumParts() << " sum " << sum << std::endl;
    }
  }
  mivo::Device::finalize();
}
