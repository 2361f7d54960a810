(declare-const |open Int)
