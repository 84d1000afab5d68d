tarvo_bench(codec_bench codec_bench.cpp LIBRARIES tarvo_codec)
