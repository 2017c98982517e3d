# SPDX-License-Identifier: Apache-2.0
# Looks for a message-passing library with the binary interface of MPICH and defines the target mivo::mpi when
# there is one. Used by this project's own build and by the installed package; never an error here, since
# one rank needs no such library.
#
#   MIVO_MPI_LIBRARY      shared library to use; found by itself in the usual places
#   MIVO_MPI_INCLUDE_DIR  folder of its mpi.h, for programs that call MPI_* themselves; optional
#   MIVO_MPIEXEC          launcher of the same family, for tests
#   mivo_mpi_REASON       on failure, why there is no mivo::mpi

set(mivo_mpi_REASON "")
find_library(MIVO_MPI_LIBRARY NAMES mpich mpi HINTS ENV MPI_HOME PATH_SUFFIXES lib
  DOC "Message-passing library with the binary interface of MPICH")
find_path(MIVO_MPI_INCLUDE_DIR mpi.h HINTS ENV MPI_HOME
  PATH_SUFFIXES include mpich ${CMAKE_CXX_LIBRARY_ARCHITECTURE}/mpich mpich-x86_64
  DOC "Folder of mpi.h of MIVO_MPI_LIBRARY")
find_program(MIVO_MPIEXEC NAMES mpiexec.mpich mpiexec.hydra mpiexec HINTS ENV MPI_HOME PATH_SUFFIXES bin
  DOC "Launcher of MIVO_MPI_LIBRARY")
mark_as_advanced(MIVO_MPI_LIBRARY MIVO_MPI_INCLUDE_DIR MIVO_MPIEXEC)

# Sets `out` to a text that says why `library` cannot serve, empty when it can. Handles differ between the
# families (numbers here, addresses there), so a wrong one would not fail to link but crash.
function(mivo_check_mpi_library library out)
  set(${out} "" PARENT_SCOPE)
  if(NOT EXISTS "${library}")
    set(${out} "MIVO_MPI_LIBRARY is ${library}, which does not exist" PARENT_SCOPE)
    return()
  endif()
  file(REAL_PATH "${library}" real)
  if(real MATCHES "\\.a$")
    set(${out} "${library} is a static library; the library must come before libmivo at run time, so a shared one is needed"
      PARENT_SCOPE)
    return()
  endif()
  file(STRINGS "${real}" own LIMIT_COUNT 1 REGEX "MPICH Version|MVAPICH|Intel\\(R\\) MPI Library|CRAY MPICH")
  if(own)
    return()
  endif()
  file(STRINGS "${real}" other LIMIT_COUNT 1 REGEX "ompi_mpi_comm_world|Open MPI")
  set(family "of a family that is not known to share MPICH's binary interface")
  if(other)
    set(family "Open MPI")
  endif()
  set(${out} "${library} is ${family}; mivo::mpi needs MPICH or a library with its binary interface (on Debian and Ubuntu: libmpich-dev). Set MIVO_MPI_LIBRARY to its shared library"
    PARENT_SCOPE)
endfunction()

if(NOT MIVO_MPI_LIBRARY)
  set(mivo_mpi_REASON "no message-passing library was found (on Debian and Ubuntu: libmpich-dev, or set MIVO_MPI_LIBRARY)")
else()
  # Reading the library takes a second, so the verdict is kept until another library is named.
  if(NOT MIVO_MPI_CHECKED_LIBRARY STREQUAL MIVO_MPI_LIBRARY)
    mivo_check_mpi_library("${MIVO_MPI_LIBRARY}" mivo_mpi_REASON)
    set(MIVO_MPI_CHECKED_LIBRARY "${MIVO_MPI_LIBRARY}" CACHE INTERNAL "Library that MIVO_MPI_CHECK_RESULT is about")
    set(MIVO_MPI_CHECK_RESULT "${mivo_mpi_REASON}" CACHE INTERNAL "Why that library cannot serve")
  endif()
  set(mivo_mpi_REASON "${MIVO_MPI_CHECK_RESULT}")
endif()

if(mivo_mpi_REASON STREQUAL "" AND NOT TARGET mivo::mpi)
  add_library(mivo::mpi_library SHARED IMPORTED GLOBAL)
  set_target_properties(mivo::mpi_library PROPERTIES IMPORTED_LOCATION "${MIVO_MPI_LIBRARY}")
  if(MIVO_MPI_INCLUDE_DIR)
    target_include_directories(mivo::mpi_library INTERFACE "${MIVO_MPI_INCLUDE_DIR}")
  endif()
  add_library(mivo::mpi INTERFACE IMPORTED GLOBAL)
  # The dynamic linker takes MPI_* from the first library in the order of the link, which must be this one, and
  # not the one-rank form inside libmivo. Link options come before all libraries, in whatever order a
  # project names its targets; --no-as-needed keeps the library for a program that calls no
  # MPI_* itself.
  target_link_options(mivo::mpi INTERFACE "LINKER:--push-state,--no-as-needed,${MIVO_MPI_LIBRARY},--pop-state")
  # Named once more as a library for its folder's run path and header.
  target_link_libraries(mivo::mpi INTERFACE mivo::mpi_library mivo::mivo)
endif()

# Warns of targets that link libmivo beside a message-passing library of another family: the names of one of the two
# would hide those of the other, and the program would be a world of one or end at its start.
function(mivo_warn_of_other_mpi directory)
  get_property(targets DIRECTORY "${directory}" PROPERTY BUILDSYSTEM_TARGETS)
  foreach(target IN LISTS targets)
    get_target_property(type ${target} TYPE)
    if(type MATCHES "^(EXECUTABLE|SHARED_LIBRARY|MODULE_LIBRARY|STATIC_LIBRARY)$")
      set(found "")
      mivo_linked_by(${target} found)
      if("mivo::mivo" IN_LIST found OR "mivo::mpi" IN_LIST found)
        mivo_warn_of_libraries(${target} ${found})
      endif()
    endif()
  endforeach()
  get_property(folders DIRECTORY "${directory}" PROPERTY SUBDIRECTORIES)
  foreach(folder IN LISTS folders)
    mivo_warn_of_other_mpi("${folder}")
  endforeach()
endfunction()

# Appends what `item` links, through other targets too, to the list `out`: targets and paths of libraries.
function(mivo_linked_by item out)
  set(found "${${out}}")
  set(names "")
  foreach(property LINK_LIBRARIES INTERFACE_LINK_LIBRARIES IMPORTED_LOCATION IMPORTED_LOCATION_RELEASE
      IMPORTED_LOCATION_NOCONFIG)
    get_target_property(value ${item} ${property})
    if(value)
      list(APPEND names ${value})
    endif()
  endforeach()
  foreach(name IN LISTS names)
    string(REGEX REPLACE "^\\$<(LINK_ONLY|BUILD_INTERFACE|INSTALL_INTERFACE):(.*)>$" "\\2" name "${name}")
    if(TARGET "${name}")
      get_target_property(aliased ${name} ALIASED_TARGET)
      if(name STREQUAL "mivo")
        set(name mivo::mivo)
      elseif(aliased AND NOT name MATCHES "^mivo::")
        set(name ${aliased})
      endif()
    endif()
    if(NOT name IN_LIST found)
      list(APPEND found "${name}")
      if(TARGET "${name}" AND NOT name MATCHES "^mivo::")
        mivo_linked_by(${name} found)
      endif()
    endif()
  endforeach()
  set(${out} "${found}" PARENT_SCOPE)
endfunction()

function(mivo_warn_of_libraries target)
  foreach(library IN LISTS ARGN)
    get_filename_component(name "${library}" NAME)
    if(IS_ABSOLUTE "${library}" AND name MATCHES "^libmpi\\.so")
      mivo_check_mpi_library("${library}" reason)
      if(reason MATCHES "Open MPI|not known to share")
        message(WARNING "${target} links libmivo beside another message-passing library: ${reason}; or do without "
          "the other library.")
        return()
      endif()
    endif()
  endforeach()
endfunction()

# At the end of the configuration, when all targets know what they link.
get_property(mivo_warns GLOBAL PROPERTY MIVO_WARNS_OF_OTHER_MPI)
if(NOT mivo_warns AND NOT CMAKE_SCRIPT_MODE_FILE)
  set_property(GLOBAL PROPERTY MIVO_WARNS_OF_OTHER_MPI TRUE)
  cmake_language(EVAL CODE "cmake_language(DEFER DIRECTORY [[${CMAKE_SOURCE_DIR}]] CALL mivo_warn_of_other_mpi [[${CMAKE_SOURCE_DIR}]])")
endif()
