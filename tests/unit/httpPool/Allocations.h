#pragma once

/// How often operator new has been called on this thread.
long allocationsOfThisThread();
