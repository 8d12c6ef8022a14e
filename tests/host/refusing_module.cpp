// A module that does not start.
extern "C" unsigned SAVRO_TARQ_Init(unsigned) { return 7; }
extern "C" unsigned SAVRO_TARQ_Destory() { return 0; }
