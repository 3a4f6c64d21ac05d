// What starting any program costs.
int main(void) { return 0; }
