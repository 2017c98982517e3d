# SPDX-License-Identifier: Apache-2.0
# Looks for MPICH, which the parallel form of programs needs; without it everything but that form builds.
