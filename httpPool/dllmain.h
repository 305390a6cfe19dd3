#pragma once

// What happens when the library's image is loaded and unloaded: the registry is made and deleted.

/// Keeps the image mapped until the process ends, so that timers that are still running after an unload find
/// their code. On the host's thread, when the first pool is made; later calls do nothing.
void PinImage();
