#pragma once

// This program's operator new can be made to fail, also for the libraries that it loads.

// The n-th allocation of this thread from now on fails, once; 0 for none.
void failAllocation(int n);
