// An application with GTK 3 that requests URLs side by side. GTK turns the run loop; nothing else is needed for it.
//
//   example-gtk [URL...]

#include <gtk/gtk.h>

#include "Window.h"

int main(int argc, char** argv) {
  gtk_init(&argc, &argv);
  example::Window window;
  for (int i = 1; i < argc; ++i) {
    window.add(argv[i]);
  }
  gtk_main();
  return 0;
}
