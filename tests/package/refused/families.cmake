# cmake -DMODULE=MivoMpi.cmake -DWORK_DIR=... -P: libraries that cannot serve as mivo::mpi, and what is said of each.
cmake_minimum_required(VERSION 3.22)
file(MAKE_DIRECTORY ${WORK_DIR})

# refused(NAME TEXT REASON): a library NAME that holds TEXT (none where TEXT is empty) is refused with words that
# match REASON.
function(refused name text reason)
  set(MIVO_MPI_LIBRARY ${WORK_DIR}/${name} CACHE FILEPATH "" FORCE)
  file(REMOVE ${MIVO_MPI_LIBRARY})
  if(text)
    file(WRITE ${MIVO_MPI_LIBRARY} "${text}\n")
  endif()
  include(${MODULE})
  if(NOT mivo_mpi_REASON MATCHES "${reason}" OR NOT mivo_mpi_REASON MATCHES "${name}")
    message(SEND_ERROR "${name}: '${mivo_mpi_REASON}' does not match '${reason}'")
  endif()
endfunction()

refused(libmissing.so "" "does not exist")
refused(libmpich.a "MPICH Version" "static library.*a shared one is needed")
refused(libmpi.so "symbol ompi_mpi_comm_world" "is Open MPI; mivo::mpi needs MPICH.*Set MIVO_MPI_LIBRARY")
refused(libother.so "some other library" "not known to share MPICH's binary interface.*Set MIVO_MPI_LIBRARY")
