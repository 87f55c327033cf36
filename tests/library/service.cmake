# SPDX-License-Identifier: Apache-2.0
# Tests of the list service, the suffix numbers, their file and the singletons.

include(${PROJECT_SOURCE_DIR}/tests/recording/recording.cmake)

lm_add_tests(service_tests
  SOURCES
    DecisionsTest.cpp
    LmSIntegratedDeviceListImplTest.cpp
    LmSIntegratedDeviceListTest.cpp
    SuffixProviderTest.cpp
    SysDataFactoryTest.cpp
    SysDataIDLSuffixTest.cpp
    SysDataWrapperTest.cpp
  LIBRARIES IntegratedDeviceListObjects LmFramework::LmFramework)
target_include_directories(service_tests PRIVATE ${PROJECT_SOURCE_DIR}/src/Public/IntegratedDeviceList/private)

# Each replaces the process's operator new, hence programs of their own. clang's ThreadSanitizer links an operator new of its
# own that cannot be replaced; what runs here on more than one thread is all covered by service_tests.
if(NOT CMAKE_CXX_FLAGS MATCHES "-fsanitize=thread")
  lm_add_tests(allocation_tests
    SOURCES AllocationFailureTest.cpp
    LIBRARIES IntegratedDeviceListObjects LmFramework::LmFramework)
  target_include_directories(allocation_tests PRIVATE ${PROJECT_SOURCE_DIR}/src/Public/IntegratedDeviceList/private)
  lm_add_tests(allocation_count_tests
    SOURCES AllocationCountTest.cpp
    LIBRARIES IntegratedDeviceListObjects LmFramework::LmFramework)
  target_include_directories(allocation_count_tests PRIVATE
    ${PROJECT_SOURCE_DIR}/src/Public/IntegratedDeviceList/private)
endif()

# One process, an executable and two libraries of its own, all of which use the shared libraries as a client does.
foreach(user A B)
  add_library(SingletonUser${user} MODULE ${CMAKE_CURRENT_LIST_DIR}/singletons/SingletonUser.cpp)
  lm_target_defaults(SingletonUser${user})
  target_link_libraries(SingletonUser${user} PRIVATE IntegratedDeviceList::IntegratedDeviceList)
endforeach()
lm_add_tests(singleton_tests
  SOURCES SingletonsTest.cpp
  LIBRARIES IntegratedDeviceList::IntegratedDeviceList ${CMAKE_DL_LIBS})
add_dependencies(singleton_tests SingletonUserA SingletonUserB)
target_compile_definitions(singleton_tests PRIVATE
  SINGLETON_USER_A="$<TARGET_FILE:SingletonUserA>"
  SINGLETON_USER_B="$<TARGET_FILE:SingletonUserB>")
