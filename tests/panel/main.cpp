// Runs with an environment in which nothing of the developer's own decides how panels look or where they are.

#include <glib.h>
#include <gtest/gtest.h>

#include <cstdlib>

int main(int argc, char** argv) {
  for (const char* name :
       {"DISPLAY", "WAYLAND_DISPLAY", "GDK_SCALE", "GDK_DPI_SCALE", "GTK_MODULES", "GTK_THEME",
        "ZEP_TRUST_PANEL", "SSL_CERT_FILE", "SSL_CERT_DIR", "DBUS_SESSION_BUS_ADDRESS"}) {
    unsetenv(name);
  }
  setenv("GDK_BACKEND", "x11", 1);
  setenv("GSETTINGS_BACKEND", "memory", 1);
  setenv("NO_AT_BRIDGE", "1", 1);
  setenv("LC_ALL", "C.UTF-8", 1);
  g_main_context_default();  // made by the main thread, as by any host
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
