a_tile : b_tile { }
b_tile : a_tile { }
looped : dialog { label = "Loop"; a_tile; ok_only; }
