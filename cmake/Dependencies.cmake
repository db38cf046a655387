# Every library the project builds against, found once here for all of its directories. All come
# from Debian packages (scripts/install-deps.sh).
find_package(PkgConfig REQUIRED)
pkg_check_modules(JSONCPP REQUIRED IMPORTED_TARGET jsoncpp)
pkg_check_modules(HTTPLIB REQUIRED IMPORTED_TARGET cpp-httplib)
pkg_check_modules(LIBEVENT REQUIRED IMPORTED_TARGET libevent libevent_pthreads)
find_package(OpenSSL REQUIRED)
find_package(SQLite3 REQUIRED)
find_package(Threads REQUIRED)
find_package(CLI11 REQUIRED)
if(ZQ_BUILD_TESTS)
  find_package(GTest REQUIRED)
endif()
if(ZQ_BUILD_TESTS AND ZQ_BUILD_BENCH)
  find_package(benchmark REQUIRED)
endif()
# Node's HTTP request parser, for the admission check's lean server; it ships no pkg-config file.
find_path(HTTP_PARSER_INCLUDE_DIR http_parser.h REQUIRED)
find_library(HTTP_PARSER_LIBRARY http_parser REQUIRED)
add_library(HttpParser::HttpParser UNKNOWN IMPORTED)
set_target_properties(HttpParser::HttpParser PROPERTIES IMPORTED_LOCATION ${HTTP_PARSER_LIBRARY}
                                                        INTERFACE_INCLUDE_DIRECTORIES ${HTTP_PARSER_INCLUDE_DIR})
