# SPDX-License-Identifier: Apache-2.0
# DeviceListModel: stories by chance, the naive model and the comparison with the library, for the tests and for the
# campaign. Only where RapidCheck is, and Debian has it for the machine that builds alone.
include_guard(GLOBAL)

if(CMAKE_CROSSCOMPILING)
  message(STATUS "No comparison with the model: RapidCheck is not there for another machine")
  return()
endif()
find_package(rapidcheck QUIET)
if(NOT rapidcheck_FOUND)
  message(STATUS "No comparison with the model: RapidCheck is not installed (librapidcheck-dev)")
  return()
endif()
set_target_properties(rapidcheck PROPERTIES IMPORTED_GLOBAL TRUE)  # found in one folder, linked in two

add_library(DeviceListModel STATIC
  ${CMAKE_CURRENT_LIST_DIR}/Generators.cpp
  ${CMAKE_CURRENT_LIST_DIR}/NaiveModel.cpp
  ${CMAKE_CURRENT_LIST_DIR}/Story.cpp
  ${CMAKE_CURRENT_LIST_DIR}/StoryRunner.cpp)
lm_target_defaults(DeviceListModel)
set_source_files_properties(${CMAKE_CURRENT_LIST_DIR}/Generators.cpp PROPERTIES COMPILE_OPTIONS -O0)  # else 30 seconds
target_include_directories(DeviceListModel PUBLIC
  ${PROJECT_SOURCE_DIR}/tests
  ${PROJECT_SOURCE_DIR}/src/Public/IntegratedDeviceList/private)
target_link_libraries(DeviceListModel PUBLIC IntegratedDeviceListObjects LmFramework::LmFramework rapidcheck)
