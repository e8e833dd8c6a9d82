namespace trovix::views {}
