; a comment
(set-info :status sat)
(set-info :source |multi
line|)
(set-option :produce-models true)
(get-info :name)
(get-option :produce-models)
(echo "say ""hi""")
(declare-const |a b| Int)
(declare-const |let| Bool)
(define-const five Int 5)
(define-fun-rec nope ((x Int)) Int x)
