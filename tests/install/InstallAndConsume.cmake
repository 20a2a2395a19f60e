# Installs the built library into a staging prefix, then configures, builds and runs a small
# consumer project against it twice: once through find_package(zq CONFIG), once through
# pkg-config.
file(REMOVE_RECURSE ${ZQ_STAGE} ${ZQ_CONSUMER_BINARY})

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "failed (${result}): ${ARGN}\n${out}\n${err}")
  endif()
endfunction()

run(${CMAKE_COMMAND} --install ${ZQ_BINARY_DIR} --prefix ${ZQ_STAGE})
foreach(forbidden include/zq/platform)
  if(EXISTS ${ZQ_STAGE}/${forbidden})
    message(FATAL_ERROR "installed a private folder: ${forbidden}")
  endif()
endforeach()

# The installed tool finds the installed library by itself, with no LD_LIBRARY_PATH.
if(ZQ_WITH_TOOL)
  execute_process(COMMAND ${CMAKE_COMMAND} -E env --unset=LD_LIBRARY_PATH ${ZQ_STAGE}/bin/zq --version
                  RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT result EQUAL 0 OR NOT out MATCHES "^zq ")
    message(FATAL_ERROR "the installed zq does not run (${result}): ${out}${err}")
  endif()
  execute_process(COMMAND ${CMAKE_COMMAND} -E env --unset=LD_LIBRARY_PATH ${ZQ_STAGE}/bin/zq base64 encode zq
                  RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT result EQUAL 0 OR NOT out STREQUAL "enE=\n")
    message(FATAL_ERROR "the installed zq gave (${result}): ${out}${err}")
  endif()
  if(NOT EXISTS ${ZQ_STAGE}/share/man/man1/zq.1)
    message(FATAL_ERROR "the manual page zq.1 was not installed")
  endif()
endif()

# A client links what the public headers need, not what the library uses inside.
set(private_libraries crypto boost_thread boost_regex boost_iostreams boost_date_time boost_system)

foreach(mode package pkgconfig)
  set(bin ${ZQ_CONSUMER_BINARY}/${mode})
  run(${CMAKE_COMMAND} -S ${ZQ_CONSUMER_SOURCE} -B ${bin} -DCMAKE_PREFIX_PATH=${ZQ_STAGE}
      -DCONSUMER_MODE=${mode} -DCMAKE_CXX_FLAGS=${ZQ_CXX_FLAGS} -DCMAKE_BUILD_TYPE=Debug)
  run(${CMAKE_COMMAND} --build ${bin})
  run(${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${ZQ_STAGE}/lib:${ZQ_STAGE}/lib64 ${bin}/consumer)
  if(EXISTS ${bin}/build.ninja)
    file(READ ${bin}/build.ninja link)
  else()
    file(READ ${bin}/CMakeFiles/consumer.dir/link.txt link)
  endif()
  foreach(library ${private_libraries})
    if(link MATCHES "(/lib|-l)${library}[. ]")
      message(FATAL_ERROR "the ${mode} consumer links ${library}, which only the library needs:\n${link}")
    endif()
  endforeach()
endforeach()
message(STATUS "consumer built and ran against ${ZQ_STAGE}")
