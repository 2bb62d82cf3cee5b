# The libraries that the project stands on. The installed package finds the same ones (KrRendCoreConfig.cmake.in).
# Those of the Python module are in KrPython.cmake: it is built where they are there.
find_package(PkgConfig REQUIRED)
set(KR_OSG_MODULES
    openscenegraph openscenegraph-osgViewer openscenegraph-osgGA openscenegraph-osgText
    openscenegraph-osgDB openscenegraph-osgUtil openthreads)
pkg_check_modules(OSG REQUIRED IMPORTED_TARGET ${KR_OSG_MODULES})
pkg_check_modules(EGL REQUIRED IMPORTED_TARGET egl)
pkg_check_modules(GBM REQUIRED IMPORTED_TARGET gbm)
pkg_check_modules(X11 REQUIRED IMPORTED_TARGET x11)
pkg_check_modules(GLX REQUIRED IMPORTED_TARGET gl)
pkg_check_modules(GLU REQUIRED IMPORTED_TARGET glu)
pkg_check_modules(PNG REQUIRED IMPORTED_TARGET libpng)
pkg_check_modules(DEFLATE REQUIRED IMPORTED_TARGET libdeflate)
pkg_check_modules(JPEG REQUIRED IMPORTED_TARGET libjpeg)
# 4.5 is the first whose limits and messages are those of a file, not of the process.
pkg_check_modules(TIFF REQUIRED IMPORTED_TARGET libtiff-4>=4.5)
pkg_check_modules(LIBXML2 REQUIRED IMPORTED_TARGET libxml-2.0)
# The classes and the reentrant library that they call: each hull has a state of its own.
pkg_check_modules(QHULL REQUIRED IMPORTED_TARGET qhullcpp qhull_r)
set(KR_BOOST_VERSION 1.74)
find_package(Boost ${KR_BOOST_VERSION} REQUIRED COMPONENTS date_time)
find_package(spdlog REQUIRED)
find_package(assimp REQUIRED)
find_package(CLI11 REQUIRED)
find_package(Eigen3 REQUIRED NO_MODULE)
find_package(nlohmann_json REQUIRED)
find_package(OpenSSL 3.0 REQUIRED COMPONENTS Crypto)
find_package(meshoptimizer REQUIRED)
