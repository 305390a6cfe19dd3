// Runs with an environment in which nothing of the developer's own decides how windows look or what is trusted.

#include <gtest/gtest.h>

#include <cstdlib>

int main(int argc, char** argv) {
  for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "GDK_SCALE", "GDK_DPI_SCALE", "GTK_MODULES",
                           "GTK_THEME", "QT_SCALE_FACTOR", "QT_STYLE_OVERRIDE", "QT_QPA_PLATFORMTHEME",
                           "QT_NO_GLIB", "XDG_CURRENT_DESKTOP", "SSL_CERT_FILE", "SSL_CERT_DIR", "http_proxy",
                           "https_proxy", "all_proxy", "DBUS_SESSION_BUS_ADDRESS"}) {
    unsetenv(name);
  }
  setenv("GDK_BACKEND", "x11", 1);
  setenv("QT_QPA_PLATFORM", "xcb", 1);
  setenv("GSETTINGS_BACKEND", "memory", 1);
  setenv("NO_AT_BRIDGE", "1", 1);
  setenv("LC_ALL", "C.UTF-8", 1);
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
