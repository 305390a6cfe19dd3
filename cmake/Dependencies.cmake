# Third-party libraries. Each is linked by the one folder that owns it (docs/architecture.md).
find_package(PkgConfig REQUIRED)
pkg_check_modules(GLIB REQUIRED IMPORTED_TARGET glib-2.0)
pkg_check_modules(GIO REQUIRED IMPORTED_TARGET gio-2.0)
pkg_check_modules(CURL REQUIRED IMPORTED_TARGET libcurl>=7.88)
pkg_check_modules(OPENSSL REQUIRED IMPORTED_TARGET openssl>=3.0)
pkg_check_modules(RAPIDJSON REQUIRED IMPORTED_TARGET RapidJSON)
pkg_check_modules(JSONCPP REQUIRED IMPORTED_TARGET jsoncpp)
pkg_check_modules(SAFEC REQUIRED IMPORTED_TARGET libsafec)
