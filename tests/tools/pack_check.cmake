# What rovu-pack says of updates, against runs of the real program on the stand-in device. The system tests'
# world serves here too.
if(ROVU_BUILD_SIM)
  # The library's own dependencies are known by name only where they were looked for.
  find_package(CLI11 REQUIRED)
  find_package(LibArchive REQUIRED)
  find_package(nlohmann_json REQUIRED)

  add_executable(rovu_pack_check_tests
    ${CMAKE_CURRENT_LIST_DIR}/pack_check_test.cpp ${PROJECT_SOURCE_DIR}/tests/system/world.cpp)
  target_compile_definitions(rovu_pack_check_tests PRIVATE ROVU_PACK_PROGRAM="$<TARGET_FILE:rovu-pack>")
  target_link_libraries(rovu_pack_check_tests PRIVATE
    rovu::pack rovu::test_support rovu::warnings GTest::gtest_main)
  add_dependencies(rovu_pack_check_tests rovu-pack)
  gtest_discover_tests(rovu_pack_check_tests TEST_PREFIX tools. NO_PRETTY_VALUES PROPERTIES TIMEOUT 600)
endif()
